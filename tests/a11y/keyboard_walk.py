#!/usr/bin/python3
"""The main window and every dialog it opens, as a screen reader sees them over AT-SPI and
as a keyboard-only user drives them with xdotool.

Fails on a control a screen reader cannot name, on two controls of one window (or two
items of one menu) with the same mnemonic, on a tool bar command that no menu item
reaches, and when adding, editing, renaming and deleting a record by keyboard alone does
not reach the user's file (read back with argentpm).

Runs on an X server (xvfb-run) inside its own D-Bus session (dbus-run-session).
Argument: the build's bin folder."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

import pyatspi

BIN = os.path.abspath(sys.argv[1])
USER, PASW = "kb", "keyboard-only-1"
faults = []

# Controls a user acts on: each needs a name a screen reader can say.
ACTIVE_ROLES = {
    pyatspi.ROLE_PUSH_BUTTON, pyatspi.ROLE_CHECK_BOX, pyatspi.ROLE_RADIO_BUTTON,
    pyatspi.ROLE_TOGGLE_BUTTON, pyatspi.ROLE_TEXT, pyatspi.ROLE_ENTRY, pyatspi.ROLE_PASSWORD_TEXT,
    pyatspi.ROLE_COMBO_BOX, pyatspi.ROLE_LIST, pyatspi.ROLE_LIST_BOX, pyatspi.ROLE_TREE,
    pyatspi.ROLE_TREE_TABLE, pyatspi.ROLE_TABLE, pyatspi.ROLE_SPIN_BUTTON, pyatspi.ROLE_SLIDER,
    pyatspi.ROLE_PAGE_TAB, pyatspi.ROLE_MENU_ITEM, pyatspi.ROLE_CHECK_MENU_ITEM,
    pyatspi.ROLE_PROGRESS_BAR,
}
# Their rows or items are data, not controls.
LEAF_ROLES = {pyatspi.ROLE_TREE, pyatspi.ROLE_TREE_TABLE, pyatspi.ROLE_TABLE, pyatspi.ROLE_LIST,
              pyatspi.ROLE_LIST_BOX, pyatspi.ROLE_COMBO_BOX}


def fault(msg):
    faults.append(msg)
    print("FAULT:", msg, flush=True)


def wait_for(pred, what, timeout=8.0):
    end = time.monotonic() + timeout
    while time.monotonic() < end:
        try:
            got = pred()
            if got:
                return got
        except Exception:  # an object that went away while it was asked
            pass
        time.sleep(0.1)
    raise TimeoutError("waited in vain for " + what)


def xdo(*args):
    subprocess.run(["xdotool", *args], check=True, timeout=15)


def keys(*k):
    xdo("key", "--delay", "60", *k)
    time.sleep(0.25)


def type_text(text):
    xdo("type", "--delay", "25", text)


def showing(acc):
    return acc.getState().contains(pyatspi.STATE_SHOWING)


def children(acc):
    return [c for c in acc if c is not None]


def mnemonic(acc):
    """The Alt+letter an object answers to, from its action's key binding."""
    try:
        act = acc.queryAction()
    except NotImplementedError:
        return None
    for i in range(act.nActions):
        kb = act.getKeyBinding(i)
        if kb.lower().startswith("alt+") and len(kb) == 5:
            return kb[-1].lower()
    return None


def check_menus(bar, where):
    """Menu titles and each menu's items: names and mnemonics (menus need not be open)."""
    names = []
    titles = {}
    for title in children(bar):
        m = mnemonic(title)
        if m and m in titles:
            fault(f"{where}: menus {titles[m]!r} and {title.name!r} share Alt+{m}")
        titles[m] = title.name
        for popup in children(title):
            seen = {}
            for item in children(popup):
                if item.getRole() == pyatspi.ROLE_SEPARATOR:
                    continue
                if not item.name.strip():
                    fault(f"{where}: unnamed item in menu {title.name!r}")
                names.append(item.name)
                m = mnemonic(item)
                if m and m in seen:
                    fault(f"{where}: {seen[m]!r} and {item.name!r} share Alt+{m} in {title.name!r}")
                seen[m] = item.name
    return names


def walk_window(win):
    """Unnamed controls and mnemonic clashes of a window; returns (menu item names, tool bar
    command names)."""
    where = win.name or win.getRoleName()
    seen, menu_names, tools = {}, [], []

    def visit(acc):
        for c in children(acc):
            role = c.getRole()
            if role == pyatspi.ROLE_MENU_BAR:
                menu_names.extend(check_menus(c, where))
                for title in children(c):
                    seen.setdefault(mnemonic(title), title.name)
                continue
            if not showing(c):
                continue
            if role in ACTIVE_ROLES and not c.name.strip():
                fault(f"{where}: unnamed {c.getRoleName()}")
            if role == pyatspi.ROLE_PUSH_BUTTON and acc.getRole() == pyatspi.ROLE_TOOL_BAR:
                tools.append(c.name)
            m = mnemonic(c)
            if m and role not in (pyatspi.ROLE_TEXT, pyatspi.ROLE_PASSWORD_TEXT, pyatspi.ROLE_ENTRY,
                                  pyatspi.ROLE_COMBO_BOX, pyatspi.ROLE_LIST, pyatspi.ROLE_SPIN_BUTTON):
                # (an edit field repeats the mnemonic of the label that names it)
                if m in seen and seen[m] != c.name:
                    fault(f"{where}: {seen[m]!r} and {c.name!r} share Alt+{m}")
                seen[m] = c.name
            if role not in LEAF_ROLES:
                visit(c)

    visit(win)
    return menu_names, tools


def windows(app):
    return [w for w in children(app) if showing(w)]


def new_window(app, before, what):
    return wait_for(lambda: next((w for w in windows(app) if w not in before), None), what)


def focus(win):
    """The pointer over the window and the X focus in it (there is no window manager)."""
    ext = win.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
    xdo("mousemove", str(ext.x + ext.width // 2), str(ext.y + 10))
    loc = subprocess.run(["xdotool", "getmouselocation", "--shell"], capture_output=True, text=True,
                         timeout=10).stdout
    wid = dict(line.split("=", 1) for line in loc.split()).get("WINDOW")
    if wid:
        xdo("windowfocus", "--sync", wid)
    time.sleep(0.2)


def open_dialog(app, main, key_seq, what):
    """Opens a dialog by keys, walks it, closes it with Escape and waits until it is gone."""
    before = windows(app)
    focus(main)
    keys(*key_seq)
    return walk_and_close(app, new_window(app, before, what), what)


def walk_and_close(app, dlg, what):
    name = dlg.name
    walk_window(dlg)
    focus(dlg)
    keys("Escape")
    wait_for(lambda: not showing(dlg) or dlg not in windows(app), what + " closing")
    return name


def argentpm(*args, stdin=PASW + "\n"):
    r = subprocess.run([os.path.join(BIN, "argentpm"), *args, "--password-stdin"], input=stdin,
                       capture_output=True, text=True, timeout=30, env=ENV)
    if r.returncode != 0:
        raise RuntimeError(f"argentpm {args}: {r.stderr}")
    return r.stdout


def items():
    return {i["title"]: i for i in json.loads(argentpm("ls", USER, "--json"))["items"]}


def setup():
    root = tempfile.mkdtemp(prefix="argent-keys-")
    env = dict(os.environ)
    for var, sub in (("HOME", "home"), ("XDG_CONFIG_HOME", "config"), ("XDG_DATA_HOME", "data"),
                     ("XDG_CACHE_HOME", "cache"), ("XDG_RUNTIME_DIR", "run")):
        os.makedirs(os.path.join(root, sub), mode=0o700)
        env[var] = os.path.join(root, sub)
    prog = os.path.join(root, "prog")
    os.makedirs(prog)
    for f in ("ArgentPasswordMngr", "start.dat", "mainicon.png", "mainicon.ico", "readme.txt",
              "SampleUser.bdb"):
        if os.path.exists(os.path.join(BIN, f)):
            shutil.copy(os.path.join(BIN, f), prog)
    shutil.copytree(os.path.join(BIN, "Languages"), os.path.join(prog, "Languages"))
    env.update(QT_QPA_PLATFORM="xcb", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", QT_ACCESSIBILITY="1")
    return root, prog, env


def find_app(pid):
    def look():
        for a in children(pyatspi.Registry.getDesktop(0)):
            if a.get_process_id() == pid and windows(a):
                return a
        return None
    return wait_for(look, "the program on the accessibility bus", 20)


def open_user(app, main):
    """File > Select user, the user, the password: all by keys."""
    before = windows(app)
    focus(main)
    keys("alt+f", "s")
    sel = new_window(app, before, "the user selection")
    walk_window(sel)
    focus(sel)
    # The list has the focus; the user is its first name, the default button opens it.
    keys("Home", "Return")
    pw = new_window(app, before + [sel], "the password prompt")
    walk_window(pw)
    focus(pw)
    type_text(PASW)
    keys("Return")
    wait_for(lambda: windows(app) == [main], "the user to open")


def drive_records(app, main):
    """Adds, edits, renames and deletes a record with the keyboard alone."""
    focus(main)
    # The tree has the focus; Home is the root, Down its first folder.
    keys("Home", "Down")
    before = windows(app)
    keys("Insert")
    add = new_window(app, before, "the new record dialog")
    walk_window(add)
    focus(add)
    type_text("Typed title")
    keys("alt+l")
    type_text("typed-login")
    keys("Return")
    wait_for(lambda: "Typed title" in items(), "the record in the file")
    rec = items()["Typed title"]
    if rec["parent"] != items()["Mail"]["id"] or rec["type"] != "record":
        fault(f"the new record is not a record in Mail: {rec}")

    # The new record is the selected row (without a window manager the focus comes back
    # to the main window by hand).
    focus(main)
    before = windows(app)
    keys("Return")
    edit = new_window(app, before, "the record editor")
    walk_window(edit)
    focus(edit)
    keys("alt+l", "ctrl+a")
    type_text("changed-login")
    keys("Return")
    wait_for(lambda: "changed-login" in argentpm("show", USER, str(rec["id"])), "the new login in the file")

    focus(main)
    # Rename through the Edit menu (Alt+E, N), the others by their keys.
    keys("alt+e", "n", "ctrl+a")
    type_text("Renamed")
    keys("Return")
    wait_for(lambda: "Renamed" in items(), "the new title in the file")

    before = windows(app)
    keys("Delete")
    box = new_window(app, before, "the delete question")
    walk_window(box)
    focus(box)
    keys("Return")
    wait_for(lambda: "Renamed" not in items(), "the record to leave the file")
    if "Mail" not in items():
        fault("deleting the record took its folder")


def describe_state(app):
    """What the program shows when a wait runs out: its windows and the focused control."""
    for w in windows(app):
        print("window:", w.getRoleName(), repr(w.name), flush=True)
        stack = [w]
        while stack:
            acc = stack.pop()
            if acc.getState().contains(pyatspi.STATE_FOCUSED):
                print("  focus:", acc.getRoleName(), repr(acc.name), flush=True)
            if acc.getRole() not in LEAF_ROLES:
                stack.extend(children(acc))


def lang_text(ident):
    with open(os.path.join(BIN, "Languages", "English.lng"), encoding="utf-8") as f:
        for line in f:
            if line.startswith(f"{ident}="):
                return line.rstrip("\r\n").split("=", 1)[1]
    raise KeyError(ident)


def check_tree(app, main):
    """Each row says what it is; Shift+F10 opens the context menu of the selected row."""
    tree = wait_for(lambda: pyatspi.findDescendant(main, lambda a: a.getRole() in (
        pyatspi.ROLE_TREE, pyatspi.ROLE_TREE_TABLE)), "the tree")
    rows = {c.name: c.description for c in children(tree)
            if c.getRole() in (pyatspi.ROLE_TABLE_CELL, pyatspi.ROLE_TREE_ITEM)}
    expected = lang_text(547).replace("%1", "2").replace("%2", "0").replace("%3", "0")
    if rows.get("Mail") != expected:
        fault(f"the folder row says {rows.get('Mail')!r}, not {expected!r}")
    for name, desc in rows.items():
        if not desc:
            fault(f"the row {name!r} has no description")
    # The menu is a pop-up, which the bus does not list: its first item (Add folder) is
    # chosen by keys and the folder it adds is looked for in the file, then deleted. The
    # Menu key must open the selected row's menu wherever the pointer is.
    count = len(items())
    for menu_key in ("shift+F10", "Menu"):
        focus(main)
        keys("Home", "Down", menu_key, "Down", "Return")
        wait_for(lambda: len(items()) == count + 1, f"a folder added from the context menu ({menu_key})")
        keys("Escape")
        before = windows(app)
        keys("Delete")
        box = new_window(app, before, "the delete question")
        focus(box)
        keys("Return")
        wait_for(lambda: len(items()) == count, "the added folder to leave the file")
    focus(main)


def main_test():
    global ENV
    root, prog, ENV = setup()
    argentpm("add-user", USER, stdin=PASW + "\n" + PASW + "\n")
    argentpm("mkdir", USER, "0", "Mail")
    proc = subprocess.Popen([os.path.join(prog, "ArgentPasswordMngr")], env=ENV)
    app = None
    try:
        app = find_app(proc.pid)
        main = next(w for w in windows(app) if w.getRole() == pyatspi.ROLE_FRAME)
        # A first start asks for the demonstration user's password: declined.
        for w in windows(app):
            if w != main:
                walk_window(w)
                focus(w)
                keys("Escape")
        wait_for(lambda: windows(app) == [main], "the first prompt to close")
        open_user(app, main)
        menu_names, tools = walk_window(main)
        if len(tools) < 9:
            fault(f"the tool bar shows {len(tools)} commands")
        for tool in tools:
            # A menu item reaches a tool bar command when it bears its name, or the name's
            # first word for a command that acts on whatever is selected ("Delete").
            words = tool.lower().split()
            reached = [n for n in menu_names
                       if n.lower().rstrip(".") in (tool.lower(), words[0])]
            if not reached:
                fault(f"no menu item reaches the tool bar command {tool!r}")
        check_tree(app, main)
        drive_records(app, main)
        # Every dialog the main window opens from its menus, with the tree on a folder.
        focus(main)
        keys("Home", "Down")
        opened = []
        for seq, what in ((["alt+f", "n"], "new user"), (["alt+f", "r"], "restore"),
                          (["alt+f", "i"], "import"), (["alt+f", "p"], "export"),
                          (["Insert"], "add record"), (["Return"], "edit folder"),
                          (["ctrl+f"], "find"), (["alt+t", "g"], "generator"),
                          (["alt+t", "h"], "password health"), (["alt+t", "o"], "options"),
                          (["alt+t", "i"], "removable device folder"), (["alt+h", "a"], "about")):
            opened.append(open_dialog(app, main, seq, what))
        # File > Change password asks first; Yes (Alt+Y) opens the dialog.
        before = windows(app)
        focus(main)
        keys("alt+f", "c")
        box = new_window(app, before, "the change password question")
        walk_window(box)
        focus(box)
        keys("alt+y")
        dlg = wait_for(lambda: next((w for w in windows(app) if w not in (main, box)), None),
                       "the change password dialog")
        opened.append(walk_and_close(app, dlg, "change password"))
        print("walked:", ", ".join(opened), flush=True)
    except Exception:
        if app is not None:
            describe_state(app)
        raise
    finally:
        proc.kill()
        proc.wait(10)
        shutil.rmtree(root, ignore_errors=True)


if __name__ == "__main__":
    started = time.monotonic()
    try:
        main_test()
    except Exception as e:  # a wait that ran out, a program that failed
        fault(f"{type(e).__name__}: {e}")
    print(f"{len(faults)} fault(s) in {time.monotonic() - started:.1f} s", flush=True)
    sys.exit(1 if faults else 0)
