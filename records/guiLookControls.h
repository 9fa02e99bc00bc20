#pragma once

// The controls the record and folder editors share: the icon chooser (imcIcons), the
// bold box (chkBold) and the colour swatch (picColor) with its change button.

#include <QObject>

class QCheckBox;
class QGridLayout;
class QLabel;
class QListWidget;
class QPushButton;
class QWidget;
class clsDatabase;

class LookControls : public QObject {
    Q_OBJECT
public:
    explicit LookControls(QWidget* Owner);
    void ShowFormLang();
    // Puts the icons and the colour row into rows Row and Row + 1 of Grid, the controls
    // spanning Span columns after the caption column.
    void AddTo(QGridLayout* Grid, int Row, int Span);
    // From a row: "Image" selects the icon by its 1-based index ("3key" the third),
    // "Flags" gives the swatch colour (strictly converted) and RecFlags.
    void LoadFromRow(const QString& Image, const QString& Flags);
    // What the editor writes back: "<index>key", and "<colour>|<bits>" with the bold bit
    // taken from the box and every other bit kept.
    QString ImageValue() const;
    QString FlagsValue();
    // The same to and from a row of the database.
    void LoadFromDb(clsDatabase& Db, int TblNum, int RecNum);
    void WriteToRow(clsDatabase& Db, int TblNum, int RecNum);

    QLabel *lblIconCap, *lblColorCap;
    QListWidget* imcIcons;
    QCheckBox* chkBold;
    QLabel* picColor;
    QPushButton* cmdChangeCol;
    int RecColor = 0;
    int RecFlags = 0;

public slots:
    void cmdChangeCol_Click();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void ShowSwatch();
    QWidget* m_owner;
};
