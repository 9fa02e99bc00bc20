#pragma once

// A string array with a lower and an upper bound, as the settings loader grows it:
// a fresh array holds only element 0; the first appended element replaces it as
// element 1, later ones extend the array. Indexing outside the bounds raises
// error 9 "Subscript out of range".

#include <QString>
#include <QStringList>

struct StrMass {
    int LBound = 0;
    QStringList Items{QString()};

    int UBound() const { return LBound + static_cast<int>(Items.size()) - 1; }
    QString& operator[](int i);
    const QString& operator[](int i) const;
    // Back to the fresh state: only element 0, empty.
    void Reset() {
        LBound = 0;
        Items = QStringList{QString()};
    }
};

// Appends one string; the first append drops the fresh array's element 0.
void AddElemToStrMass(StrMass& pMass, const QString& Elem);
