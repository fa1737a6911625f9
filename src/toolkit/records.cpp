// Fortran-compatible output records.
//
// Numbers are rounded by the C library's conversion, which works on the
// exact binary value and breaks ties to even, exactly as the Fortran
// runtime's own conversions do; the layout around the digits is ours.
#include "toolkit/records.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tervak {

namespace {

// Fills out[0..w) with src right-aligned; asterisks when it does not fit.
void right_align(char* out, int w, const char* src, int n) {
    if (n > w) {
        std::memset(out, '*', static_cast<std::size_t>(w));
        return;
    }
    std::memset(out, ' ', static_cast<std::size_t>(w - n));
    std::memcpy(out + (w - n), src, static_cast<std::size_t>(n));
}

// NaN and infinities in a field of width w: "NaN", "Infinity" or the short
// "Inf" when the long word does not fit, a minus sign for -Infinity only.
void format_infnan(char* out, int w, double x) {
    if (std::isnan(x)) {
        right_align(out, w, "NaN", 3);
        return;
    }
    const bool neg = std::signbit(x);
    const int room = neg ? w - 1 : w;
    if (room >= 8) {
        right_align(out, w, neg ? "-Infinity" : "Infinity", neg ? 9 : 8);
    } else {
        right_align(out, w, neg ? "-Inf" : "Inf", neg ? 4 : 3);
    }
}

// Decimal digits of x rounded to nd significant digits, and the decimal
// exponent of the rounded value (zero has exponent 0). nd <= 40.
struct Digits {
    bool neg = false;
    int exp10 = 0;
    char d[41] = {};
};

Digits round_digits(double x, int nd) {
    char tmp[64];
    std::snprintf(tmp, sizeof tmp, "%.*E", nd - 1, x);
    Digits r;
    const char* m = tmp;
    if (*m == '-') {
        r.neg = true;
        ++m;
    }
    int k = 0;
    for (; *m != 'E'; ++m) {
        if (*m != '.') r.d[k++] = *m;
    }
    r.exp10 = std::atoi(m + 1);
    return r;
}

}  // namespace

void format_list_int(char* out, std::int32_t k) { format_i(out, 11, k); }

// Real list item: 25 columns, 17 significant digits. Fixed form F20.(17-k)
// plus five blanks when the rounded value lies in [0.1, 1e17) or is zero,
// else d.ddddddddddddddddE+ddd right-aligned.
void format_list_real(char* out, double x) {
    constexpr int kW = 25;
    constexpr int kSig = 17;
    if (!std::isfinite(x)) {
        format_infnan(out, kW, x);
        return;
    }
    const Digits g = round_digits(x, kSig);
    char field[48];
    int n = 0;
    if (g.neg) field[n++] = '-';
    if (x == 0.0) {
        field[n++] = '0';
        field[n++] = '.';
        for (int i = 0; i < kSig - 1; ++i) field[n++] = '0';
    } else if (g.exp10 >= -1 && g.exp10 <= 16) {
        const int before = g.exp10 + 1;  // digits before the point
        if (before == 0) field[n++] = '0';
        for (int i = 0; i < before; ++i) field[n++] = g.d[i];
        field[n++] = '.';
        for (int i = before; i < kSig; ++i) field[n++] = g.d[i];
    } else {
        field[n++] = g.d[0];
        field[n++] = '.';
        for (int i = 1; i < kSig; ++i) field[n++] = g.d[i];
        const int ae = g.exp10 < 0 ? -g.exp10 : g.exp10;
        field[n++] = 'E';
        field[n++] = g.exp10 < 0 ? '-' : '+';
        field[n++] = static_cast<char>('0' + ae / 100);
        field[n++] = static_cast<char>('0' + ae / 10 % 10);
        field[n++] = static_cast<char>('0' + ae % 10);
        right_align(out, kW, field, n);
        return;
    }
    right_align(out, kW - 5, field, n);
    std::memset(out + kW - 5, ' ', 5);
}

void format_i(char* out, int width, std::int32_t k) {
    char tmp[16];
    const int n = std::snprintf(tmp, sizeof tmp, "%d", static_cast<int>(k));
    right_align(out, width, tmp, n);
}

// "1p,eW.D": one digit before the point, D after; exponent E+dd, or +ddd
// without the letter when it needs three digits.
void format_1pe(char* out, int width, int digits, double x) {
    if (!std::isfinite(x)) {
        format_infnan(out, width, x);
        return;
    }
    const Digits g = round_digits(x, digits + 1);
    const int ex = x == 0.0 ? 0 : g.exp10;
    const int ae = ex < 0 ? -ex : ex;
    char field[64];
    int n = 0;
    if (g.neg) field[n++] = '-';
    field[n++] = g.d[0];
    field[n++] = '.';
    for (int i = 1; i <= digits; ++i) field[n++] = g.d[i];
    if (ae < 100) {
        field[n++] = 'E';
        field[n++] = ex < 0 ? '-' : '+';
        field[n++] = static_cast<char>('0' + ae / 10);
        field[n++] = static_cast<char>('0' + ae % 10);
    } else {
        field[n++] = ex < 0 ? '-' : '+';
        field[n++] = static_cast<char>('0' + ae / 100);
        field[n++] = static_cast<char>('0' + ae / 10 % 10);
        field[n++] = static_cast<char>('0' + ae % 10);
    }
    right_align(out, width, field, n);
}

// The record's leading blank comes with its first item: an empty list
// writes an empty record.
ListRecord::ListRecord() = default;

// A record longer than the buffer goes out in pieces; the newline and the
// flush still come only once, at the end.
void ListRecord::put(std::string_view s) {
    while (!s.empty()) {
        if (len_ == kCap - 1) {
            std::fwrite(buf_, 1, len_, stdout);
            len_ = 0;
        }
        const std::size_t n = s.size() < kCap - 1 - len_ ? s.size() : kCap - 1 - len_;
        std::memcpy(buf_ + len_, s.data(), n);
        len_ += n;
        s.remove_prefix(n);
    }
}

ListRecord& ListRecord::operator<<(std::string_view text) {
    if (empty_ || !lastWasText_) put(" ");
    put(text);
    lastWasText_ = true;
    empty_ = false;
    return *this;
}

// A number item: a blank, then its field.
void ListRecord::put_number(std::string_view field) {
    put(" ");
    put(field);
    lastWasText_ = false;
    empty_ = false;
}

ListRecord& ListRecord::operator<<(std::int32_t k) {
    char f[11];
    format_list_int(f, k);
    put_number(std::string_view(f, sizeof f));
    return *this;
}

ListRecord& ListRecord::operator<<(double x) {
    char f[25];
    format_list_real(f, x);
    put_number(std::string_view(f, sizeof f));
    return *this;
}

void ListRecord::write(int unit) {
    if (unit < 1) return;
    buf_[len_] = '\n';
    std::fwrite(buf_, 1, len_ + 1, stdout);
    std::fflush(stdout);
}

void say(std::string_view text) { ListRecord() << text << ListRecord::end; }

void stop_run(std::string_view message) {
    std::fflush(stdout);
    std::fprintf(stderr, "STOP %.*s\n", static_cast<int>(message.size()), message.data());
    std::fflush(stderr);
    std::_Exit(1);
}

}  // namespace tervak
