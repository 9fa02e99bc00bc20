#pragma once

// The conversions every module uses on text from settings, language and database files.
//
// Val   reads the leading number of a text leniently: blanks are skipped, reading stops at
//       the first character that cannot continue the number, no number gives 0. "&H1F"
//       and "&O17" are hexadecimal and octal.
// CLng  32-bit and CInt 16-bit integers: a text must be a number as a whole (blanks around
//       it allowed), else error 13 "Type mismatch"; halves round to even; out of range is
//       error 6 "Overflow". "True" and "False" convert to -1 and 0.
// CBool "True"/"False" in any case, or a number (non-zero is True); else error 13.
// CStr  a number as text, at most 15 significant digits ("1.5", "1E+20").

#include <QString>

#include <source_location>

double Val(const QString& Text);
// CLng, CInt, CBool and VbDiv work like operators: an error they raise is reported as the
// calling procedure's, at the caller's line.
using SrcLoc = std::source_location;
int CLng(const QString& Text, SrcLoc Loc = SrcLoc::current());
int CLng(double Value, SrcLoc Loc = SrcLoc::current());
short CInt(const QString& Text, SrcLoc Loc = SrcLoc::current());
short CInt(double Value, SrcLoc Loc = SrcLoc::current());
bool CBool(const QString& Text, SrcLoc Loc = SrcLoc::current());
QString CStr(double Value);
QString CStr(int Value);
// Rounds half to even, as the integer conversions do.
double RoundHalfEven(double Value);
// Floating-point division that, like every division in the program's run-time, treats a
// zero divisor as error 11 "Division by zero" instead of producing an infinity.
double VbDiv(double Dividend, double Divisor, SrcLoc Loc = SrcLoc::current());
