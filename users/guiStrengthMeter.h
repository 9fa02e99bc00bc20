#pragma once

// A live strength meter under a new master password: a bar, the level in words and the
// time an offline guesser would need, updated on every key.

#include <QWidget>

class QLabel;
class QLineEdit;
class QProgressBar;
struct PaswStrength;

class StrengthMeter : public QWidget {
    Q_OBJECT
public:
    explicit StrengthMeter(QLineEdit* Password, QWidget* parent = nullptr);
    // Words that weaken a password holding them (the user name).
    void SetUserWords(const QStringList& Words);
    void ShowFormLang();
    void Update();

    QProgressBar* prgStrength;
    QLabel* lblStrength;
    QLabel* lblWarning;

private:
    QLineEdit* m_pasw;
    QStringList m_words;
};

// The estimate in the words of the language file ("would take about 3 hours ...").
QString GuessTimeText(const PaswStrength& S);
