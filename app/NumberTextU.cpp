#include "NumberTextU.h"

#include "ErrorsU.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>

namespace NumberText
{
namespace
{
bool IsDigit(QChar c)
{
  return c >= u'0' && c <= u'9';
}

int HexDigit(QChar c)
{
  if (IsDigit(c))
    return c.unicode() - u'0';
  if (c >= u'a' && c <= u'f')
    return c.unicode() - u'a' + 10;
  if (c >= u'A' && c <= u'F')
    return c.unicode() - u'A' + 10;
  return -1;
}

// A finite value as decimal digits: |value| = d.ddd * 10^Exponent, with no
// trailing zeros ("0" for zero).
struct TDecimal
{
  bool Negative = false;
  std::string Digits;
  int Exponent = 0;
};

// significant == 0 asks for the shortest digits that read back to the same double.
TDecimal Decompose(double value, int significant)
{
  char buffer[64];
  const double magnitude = std::fabs(value);
  const std::to_chars_result r = significant > 0
    ? std::to_chars(buffer, buffer + sizeof buffer, magnitude, std::chars_format::scientific, significant - 1)
    : std::to_chars(buffer, buffer + sizeof buffer, magnitude, std::chars_format::scientific);
  const std::string_view text(buffer, r.ptr - buffer);
  const std::size_t e = text.find('e');

  TDecimal d;
  d.Negative = std::signbit(value);
  for (char c : text.substr(0, e))
    if (c != '.')
      d.Digits += c;
  std::string_view exponent = text.substr(e + 1);
  if (!exponent.empty() && exponent.front() == '+')
    exponent.remove_prefix(1);
  std::from_chars(exponent.data(), exponent.data() + exponent.size(), d.Exponent);

  while (d.Digits.size() > 1 && d.Digits.back() == '0')
    d.Digits.pop_back();
  if (d.Digits == "0")
    d.Exponent = 0;
  return d;
}

// Infinities and NaN have no number form; these texts are never read back.
std::optional<QString> NonFinite(double value)
{
  if (std::isnan(value))
    return QStringLiteral("NAN");
  if (std::isinf(value))
    return value > 0 ? QStringLiteral("INF") : QStringLiteral("-INF");
  return std::nullopt;
}
}

std::optional<double> TryStrToFloat(const QString& text, const QLocale& locale)
{
  return TryStrToFloat(text, locale.decimalPoint());
}

std::optional<double> TryStrToFloat(const QString& text, QStringView point)
{
  const QString s = text.trimmed();
  const qsizetype n = s.size();
  qsizetype i = 0;

  bool negative = false;
  if (i < n && (s[i] == u'+' || s[i] == u'-'))
    negative = s[i++] == u'-';

  // Rebuilt in C form for from_chars, which knows nothing of locales.
  std::string c;
  int intDigits = 0;
  int fracDigits = 0;
  for (; i < n && IsDigit(s[i]); ++i, ++intDigits)
    c += char(s[i].unicode());
  if (!point.isEmpty() && QStringView(s).mid(i).startsWith(point))
  {
    i += point.size();
    c += '.';
    for (; i < n && IsDigit(s[i]); ++i, ++fracDigits)
      c += char(s[i].unicode());
  }
  if (intDigits + fracDigits == 0)
    return std::nullopt;

  const std::size_t mantissaLength = c.size();
  long exponent = 0;
  if (i < n && (s[i] == u'e' || s[i] == u'E'))
  {
    c += 'e';
    ++i;
    bool negativeExponent = false;
    if (i < n && (s[i] == u'+' || s[i] == u'-'))
    {
      negativeExponent = s[i] == u'-';
      c += char(s[i++].unicode());
    }
    const qsizetype start = i;
    for (; i < n && IsDigit(s[i]); ++i)
    {
      c += char(s[i].unicode());
      exponent = std::min(exponent * 10 + (s[i].unicode() - u'0'), 1000000L);
    }
    if (i == start)
      return std::nullopt;
    if (negativeExponent)
      exponent = -exponent;
  }
  if (i != n)
    return std::nullopt;

  double value = 0;
  const std::from_chars_result r = std::from_chars(c.data(), c.data() + c.size(), value);
  if (r.ptr != c.data() + c.size())
    return std::nullopt;
  if (r.ec == std::errc::result_out_of_range)
  {
    // Too small to hold is zero; too large to hold is unreadable.
    const std::size_t firstNonZero = c.find_first_of("123456789");
    if (firstNonZero >= mantissaLength)
      return std::nullopt;
    const long first = long(firstNonZero);
    const long power = first < intDigits ? intDigits - 1 - first : intDigits - first;
    if (power + exponent > 0)
      return std::nullopt;
    value = 0;
  }
  else if (r.ec != std::errc())
    return std::nullopt;
  return negative ? -value : value;
}

double StrToFloat(const QString& text, const QLocale& locale)
{
  return StrToFloat(text, locale.decimalPoint());
}

double StrToFloat(const QString& text, QStringView point)
{
  if (const std::optional<double> value = TryStrToFloat(text, point))
    return *value;
  throw EConvertError(u'\'' + text + QStringLiteral("' is not a valid floating point value"));
}

std::optional<int> TryStrToInt(const QString& text)
{
  const QString s = text.trimmed();
  const qsizetype n = s.size();
  qsizetype i = 0;

  bool negative = false;
  if (i < n && (s[i] == u'+' || s[i] == u'-'))
    negative = s[i++] == u'-';

  bool hex = false;
  if (i < n && s[i] == u'$')
  {
    hex = true;
    i += 1;
  }
  else if (i + 1 < n && s[i] == u'0' && (s[i + 1] == u'x' || s[i + 1] == u'X'))
  {
    hex = true;
    i += 2;
  }
  if (i == n)
    return std::nullopt;

  quint64 accumulator = 0;
  if (hex)
  {
    // Up to 32 bits, taken as a two's complement bit pattern: "$FFFFFFFF" is -1.
    for (; i < n; ++i)
    {
      const int digit = HexDigit(s[i]);
      if (digit < 0)
        return std::nullopt;
      accumulator = accumulator * 16 + quint64(digit);
      if (accumulator > 0xFFFFFFFFu)
        return std::nullopt;
    }
    quint32 bits = quint32(accumulator);
    if (negative)
      bits = 0u - bits;
    return int(bits);
  }

  for (; i < n; ++i)
  {
    if (!IsDigit(s[i]))
      return std::nullopt;
    accumulator = accumulator * 10 + quint64(s[i].unicode() - u'0');
    if (accumulator > quint64(std::numeric_limits<int>::max()) + 1)
      return std::nullopt;
  }
  if (negative)
    return int(-qint64(accumulator));
  if (accumulator > quint64(std::numeric_limits<int>::max()))
    return std::nullopt;
  return int(accumulator);
}

int StrToInt(const QString& text)
{
  if (const std::optional<int> value = TryStrToInt(text))
    return *value;
  throw EConvertError(u'\'' + text + QStringLiteral("' is not a valid integer value"));
}

QString FloatToStr(double value, const QLocale& locale)
{
  return FloatToStr(value, locale.decimalPoint());
}

QString FloatToStr(double value, QStringView point)
{
  if (const std::optional<QString> text = NonFinite(value))
    return *text;
  const TDecimal d = Decompose(value, 15);
  if (d.Digits == "0")
    return QStringLiteral("0"); // also for -0.0

  // Built in one string: every report's position passes through here.
  const std::string& digits = d.Digits;
  const auto size = qsizetype(digits.size());
  const auto appendDigits = [&digits](QString& text, qsizetype from, qsizetype count) {
    text += QLatin1StringView(digits.data() + from, count);
  };
  QString result;
  result.reserve(size + 24);
  if (d.Negative)
    result += u'-';
  if (d.Exponent >= 15 || d.Exponent < -5)
  {
    appendDigits(result, 0, 1);
    if (size > 1)
    {
      result += point;
      appendDigits(result, 1, size - 1);
    }
    result += u'E';
    result += QString::number(d.Exponent);
    return result;
  }
  if (d.Exponent < 0)
  {
    result += u'0';
    result += point;
    result += QString(-d.Exponent - 1, u'0');
    appendDigits(result, 0, size);
    return result;
  }

  const qsizetype intLength = d.Exponent + 1;
  appendDigits(result, 0, std::min(intLength, size));
  if (size < intLength)
    result += QString(intLength - size, u'0');
  else if (size > intLength)
  {
    result += point;
    appendDigits(result, intLength, size - intLength);
  }
  return result;
}

QString FormatFloat6(double value, const QLocale& locale)
{
  if (const std::optional<QString> text = NonFinite(value))
    return *text;

  // Round the shortest decimal form, not the binary value, so that 0.0000005
  // (just below a half in binary) goes up as it reads.
  const TDecimal d = Decompose(value, 0);
  std::string scaled; // |value| * 10^6, rounded
  const int keep = d.Digits == "0" ? 0 : d.Exponent + 7;
  if (keep >= 0)
  {
    scaled = d.Digits.substr(0, std::size_t(keep));
    scaled.append(std::size_t(keep) - scaled.size(), '0');
    if (std::size_t(keep) < d.Digits.size() && d.Digits[std::size_t(keep)] >= '5')
    {
      std::size_t k = scaled.size();
      while (k > 0 && scaled[k - 1] == '9')
        scaled[--k] = '0';
      if (k == 0)
        scaled.insert(scaled.begin(), '1');
      else
        ++scaled[k - 1];
    }
  }
  const std::size_t firstNonZero = scaled.find_first_not_of('0');
  scaled = firstNonZero == std::string::npos ? std::string() : scaled.substr(firstNonZero);
  const bool negative = d.Negative && !scaled.empty();
  if (scaled.size() < 7)
    scaled.insert(0, 7 - scaled.size(), '0');

  const QString digits = QString::fromLatin1(scaled.data(), qsizetype(scaled.size()));
  return (negative ? QStringLiteral("-") : QString()) + digits.left(digits.size() - 6)
    + locale.decimalPoint() + digits.right(6);
}
}
