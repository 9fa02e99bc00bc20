#pragma once

// What the main-window tests share: a script that answers message boxes and dialogs,
// and one user to work on.

#include "app/MsgBox.h"
#include "app/ProgConfig.h"
#include "app/guiApplication.h"
#include "app/modLang.h"
#include "records/RecordTree.h"
#include "storage/Md5.h"
#include "storage/clsDatabase.h"
#include "tests/common/TestEnv.h"
#include "users/UserAccounts.h"
#include "users/frmPassword.h"
#include "users/frmSelectUser.h"

#include <QAbstractItemModel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTest>

#include <functional>

inline const QString kUserPasw = QStringLiteral("password1");

// Message boxes are recorded and answered in turn (Yes when nothing is queued); password
// prompts get the passwords queued ("" cancels); the user selection picks pickUser; any
// other dialog goes to on().
struct Script {
    QStringList boxes;
    QList<int> answers;
    QStringList passwords;
    QString pickUser;
    std::function<void(QDialog&)> on;
    MsgBoxHandler prevBox;
    ModalHandler prevModal;

    Script() {
        prevBox = SetMsgBoxHandler([this](const QString& p, int, const QString&) {
            boxes << p;
            return answers.isEmpty() ? int(vbYes) : answers.takeFirst();
        });
        prevModal = SetModalHandler([this](QDialog& d) {
            if (auto* pw = qobject_cast<frmPassword*>(&d)) {
                while (!passwords.isEmpty() && pw->result() != QDialog::Accepted) {
                    const QString p = passwords.takeFirst();
                    if (p.isEmpty()) {
                        pw->cmdCancel->click();
                        break;
                    }
                    pw->txtPassword->setText(p);
                    pw->cmdOk->click();
                }
            } else if (auto* su = qobject_cast<frmSelectUser*>(&d); su && !pickUser.isEmpty()) {
                const auto found = su->lstUsers->findItems(pickUser, Qt::MatchExactly);
                if (!found.isEmpty())
                    su->lstUsers->setCurrentItem(found.first());
                su->cmdChooseUser->click();
            } else if (on) {
                on(d);
            }
            return d.result();
        });
    }
    ~Script() {
        SetMsgBoxHandler(prevBox);
        SetModalHandler(prevModal);
    }
};

// Settings and language of a first run, and the user "anna" saved with these rows:
//   1 folder "Mail"           2 record "Box" in Mail (login "max")
//   3 folder "Work"           4 record "Bank" (password "MailKey", red and bold)
//   5 record "Forum" in Work
// The tree shows Work, Mail, Bank under the root. No user is loaded afterwards.
inline void makeUser(const TestEnv& env, const QString& language = QStringLiteral("English")) {
    ChooseConfiguration();
    LoadLang(env.progDir() + "/Languages/" + language + ".lng");
    ProgConfig[4] = "";
    CreateProgramObjects();
    QString p = kUserPasw;
    AddUser(UsDBFilePath("anna"), "anna", p);
    QCOMPARE(FullUserLoad("anna", HashString(kUserPasw)), 0);
    const QString mail = GetNewIndNum(*CurUsDB);
    AddFolderToDB("Mail", 0, mail);
    AddRecordToDB(*CurUsDB, mail, "Box", "max", "x", "small");
    const QString work = GetNewIndNum(*CurUsDB);
    AddFolderToDB("Work", 0, work);
    const QString bank = AddRecordToDB(*CurUsDB, "0", "Bank", "b", "MailKey", "money");
    ChangeDataTableField("IndNum", bank, "Flags", "255|1");
    AddRecordToDB(*CurUsDB, work, "Forum", "f", "y", "");
    SaveUsDB(CurUsDB, GetTruePasw(CurUsPasw));
    UnloadUser();
}

inline void openUser() {
    QCOMPARE(FullUserLoad("anna", HashString(kUserPasw)), 0);
}

inline QString rowValue(const QString& id, const QString& field) {
    return CurUsDB->GetTblFldValNm(CurUsDB->FindTable("DataTable"), FindDataRow(*CurUsDB, id), field);
}

inline QModelIndex childOf(const QModelIndex& node, int i) {
    return node.model()->index(i, 0, node);
}

inline QStringList childTexts(const QModelIndex& node) {
    QStringList t;
    for (int i = 0; i < node.model()->rowCount(node); ++i)
        t << childOf(node, i).data().toString();
    return t;
}
