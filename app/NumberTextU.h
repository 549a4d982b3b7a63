#pragma once

#include <QLocale>
#include <QString>
#include <optional>

// Numbers as text, the way the settings file, the feed and the forms write
// them: in the user's locale (QLocale()), without group separators.
namespace NumberText
{
// Decimal number with the locale's decimal separator and an optional
// exponent ("1,5E3" in a comma locale). Leading and trailing blanks are
// allowed; group separators, a "." in a comma locale, and anything else
// make the text unreadable.
std::optional<double> TryStrToFloat(const QString& text, const QLocale& locale = QLocale());

// As TryStrToFloat; throws EConvertError "'%s' is not a valid floating point value".
double StrToFloat(const QString& text, const QLocale& locale = QLocale());

// Both with the locale's decimal separator given, for a caller reading many
// numbers at once: asking the system locale for it is not cheap.
std::optional<double> TryStrToFloat(const QString& text, QStringView decimalPoint);
double StrToFloat(const QString& text, QStringView decimalPoint);

// 32-bit integer: optional sign, decimal digits, or hexadecimal after "$"
// or "0x"/"0X". Blanks around the number are allowed. Out of range is unreadable.
std::optional<int> TryStrToInt(const QString& text);

// As TryStrToInt; throws EConvertError "'%s' is not a valid integer value".
int StrToInt(const QString& text);

// Shortest text with up to 15 significant digits: "3", "41.313337",
// "-0.5", "1E20", "1E-7". Fixed notation while the value has at most 15
// digits before the separator and is at least 0.00001 in magnitude,
// scientific otherwise; the locale's decimal separator.
QString FloatToStr(double value, const QLocale& locale = QLocale());
// As above with the locale's decimal separator given, for a caller writing
// many numbers at once: asking the system locale for it is not cheap.
QString FloatToStr(double value, QStringView decimalPoint);

// Fixed notation with exactly six decimals ("0.000000"), the locale's
// decimal separator, rounding half away from zero.
QString FormatFloat6(double value, const QLocale& locale = QLocale());
}
