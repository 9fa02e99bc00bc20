#pragma once

// The main window as the browser connection's host (browser/BrowserHost.h): its questions,
// its lock and unlock, its tree and its save. ConnectBrowser starts serving the browser
// when settings entry 30 is on.

class frmMain;

void ConnectBrowser(frmMain& Main);
void DisconnectBrowser();
