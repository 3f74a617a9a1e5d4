#include "ledger/fmt.h"

#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <locale>
#include <sstream>

namespace usagekit::Fmt {

namespace {

// The amount rounded half-to-even to `decimals` places, as "digits[.fraction]" without a
// sign, starting from the shortest decimal text of the double (what a number formatter
// sees), so 0.125 gives 0.12 and 0.135 gives 0.14.
std::string roundedDecimal(double amount, int decimals) {
    char buf[64];
    auto [end, ec] =
        std::to_chars(buf, buf + sizeof buf, std::fabs(amount), std::chars_format::fixed);
    std::string text(buf, ec == std::errc() ? end : buf);
    size_t point = text.find('.');
    std::string whole = point == std::string::npos ? text : text.substr(0, point);
    std::string fraction = point == std::string::npos ? "" : text.substr(point + 1);
    if (whole.empty()) whole.push_back('0');

    std::string digits = whole + fraction;  // all digits, the point implied
    size_t keep = whole.size() + static_cast<size_t>(decimals);
    if (digits.size() < keep) digits.append(keep - digits.size(), '0');
    bool roundUp = false;
    if (digits.size() > keep) {
        char first = digits[keep];
        bool restNonZero = digits.find_first_not_of('0', keep + 1) != std::string::npos;
        bool lastOdd = keep > 0 && (digits[keep - 1] - '0') % 2 == 1;
        roundUp = first > '5' || (first == '5' && (restNonZero || lastOdd));
        digits.resize(keep);
    }
    if (roundUp) {
        int i = static_cast<int>(digits.size()) - 1;
        for (; i >= 0; --i) {
            if (digits[i] == '9') {
                digits[i] = '0';
            } else {
                ++digits[i];
                break;
            }
        }
        if (i < 0) digits.insert(digits.begin(), '1');
    }
    size_t wholeLength = digits.size() - static_cast<size_t>(decimals);
    std::string result = digits.substr(0, wholeLength);
    if (decimals > 0) {
        result += '.';
        result += digits.substr(wholeLength);
    }
    return result;
}

std::string grouped(const std::string& plain) {
    size_t point = plain.find('.');
    std::string whole = point == std::string::npos ? plain : plain.substr(0, point);
    std::string rest = point == std::string::npos ? "" : plain.substr(point);
    std::string out;
    for (size_t i = 0; i < whole.size(); ++i) {
        if (i > 0 && (whole.size() - i) % 3 == 0) out.push_back(',');
        out.push_back(whole[i]);
    }
    return out + rest;
}

std::string money(double amount, int decimals) {
    if (!std::isfinite(amount)) {
        char buf[64];
        std::snprintf(buf, sizeof buf, decimals ? "$%.2f" : "$%.0f", amount);
        return buf;
    }
    std::string digits = roundedDecimal(amount, decimals);
    bool negative = std::signbit(amount) && digits.find_first_not_of("0.") != std::string::npos;
    return std::string("$") + (negative ? "-" : "") + grouped(digits);
}

}  // namespace

std::string cents(double amount) {
    return money(amount, 2);
}

std::string dollars(double amount) {
    return money(amount, 0);
}

std::string tokens(int64_t count) {
    char buf[48];
    const double value = static_cast<double>(count);
    if (count >= 1'000'000'000)
        std::snprintf(buf, sizeof buf, "%.2fB", value / 1e9);
    else if (count >= 1'000'000)
        std::snprintf(buf, sizeof buf, "%.1fM", value / 1e6);
    else if (count >= 1'000)
        std::snprintf(buf, sizeof buf, "%.1fk", value / 1000);
    else
        std::snprintf(buf, sizeof buf, "%lld", static_cast<long long>(count));
    return buf;
}

std::string ago(Date date, Date now) {
    const double delta = now.secondsSince1970 - date.secondsSince1970;
    const double span = std::fabs(delta);
    if (span < 60) return "just now";
    struct Unit {
        double seconds;
        const char* one;
        const char* many;
    };
    static constexpr Unit kUnits[] = {
        {365 * 86400.0, "yr.", "yr."}, {30 * 86400.0, "mo.", "mo."}, {7 * 86400.0, "wk.", "wk."},
        {86400.0, "day", "days"},      {3600.0, "hr.", "hr."},       {60.0, "min.", "min."},
    };
    for (const Unit& unit : kUnits) {
        if (span < unit.seconds) continue;
        long long count = static_cast<long long>(span / unit.seconds);
        std::string amount = std::to_string(count) + " " + (count == 1 ? unit.one : unit.many);
        return delta > 0 ? amount + " ago" : "in " + amount;
    }
    return "just now";
}

std::string grouped(int64_t count) {
    const std::string digits = std::to_string(count);
    if (digits[0] != '-') return grouped(digits);
    // Appended rather than "-" + text, which GCC 12's -Wrestrict flags in Release builds.
    std::string text(1, '-');
    text += grouped(digits.substr(1));
    return text;
}

std::string n(int64_t count) {
    std::ostringstream out;
    try {
        out.imbue(std::locale(""));
    } catch (const std::exception&) {
        out.imbue(std::locale::classic());
    }
    out << count;
    return out.str();
}

}  // namespace usagekit::Fmt
