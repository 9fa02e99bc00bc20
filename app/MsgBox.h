#pragma once

// Message boxes from logic code. The GUI installs a handler that shows a real box; the
// CLI prints; tests install their own and answer by script. Answers use the classic
// codes: 1 OK, 2 Cancel, 6 Yes, 7 No.

#include <QString>

#include <functional>

enum MsgBoxStyle {
    vbOKOnly = 0,
    vbOKCancel = 1,
    vbYesNo = 4,
    vbCritical = 16,
    vbQuestion = 32,
    vbExclamation = 48,
    vbInformation = 64,
};
enum MsgBoxResult { vbOK = 1, vbCancel = 2, vbYes = 6, vbNo = 7 };

// The program's title: the caption of a message box that names no other, and the tray
// icon's tip.
inline constexpr const char* kProgramTitle = "Argent Password Manager";

using MsgBoxHandler = std::function<int(const QString& Prompt, int Style, const QString& Title)>;

int MsgBox(const QString& Prompt, int Style = vbOKOnly, const QString& Title = {});
// Installs a handler and returns the previous one.
MsgBoxHandler SetMsgBoxHandler(MsgBoxHandler Handler);
