// Labelled diagnostic writers, laid out as the Fortran runtime lays out
// the formats
//   wriivc   label record, then ((2(3x,5i4)))
//   wrivec   (A,(T7,2(1x,3(1x,1p,e10.3))))       label of up to 6 characters
//            label record, then ((2(1x,3(1x,1p,e10.3))))   longer labels
//   wrivec5  label record, then (5(1x,1p,e12.5))
//   wrimat   label record, then per row (i4,(T7,2(1x,3(1x,1p,e10.3))))
// A label record is a list-directed record of the label as it stands.
// Every record is written with one call and flushed.
#include "toolkit/writers.hpp"

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "toolkit/records.hpp"

namespace tervak {

namespace {

// One formatted record being built: a fixed buffer, a current position
// that T and X move freely, and the record's length (the furthest column
// written). Columns skipped and then written past are blanks. A record may
// also be padded with blanks up to a given length (a label's trailing
// blanks) without holding them in the buffer.
class Record {
public:
    void tab(int column) { pos_ = column - 1; }
    void skip(int n) { pos_ += n; }
    void put(const char* s, int n) {
        if (pos_ > len_) std::memset(buf_ + len_, ' ', static_cast<std::size_t>(pos_ - len_));
        std::memcpy(buf_ + pos_, s, static_cast<std::size_t>(n));
        pos_ += n;
        if (pos_ > len_) len_ = pos_;
    }
    void pad_to(std::size_t n) { padTo_ = n; }
    void put_e(int width, int digits, double x) {
        char f[16];
        format_1pe(f, width, digits, x);
        put(f, width);
    }
    void put_i(int width, int k) {
        char f[16];
        format_i(f, width, k);
        put(f, width);
    }
    // Writes the record and its newline, then starts an empty one.
    void emit() {
        const std::size_t len = static_cast<std::size_t>(len_);
        if (padTo_ <= len) {
            buf_[len] = '\n';
            std::fwrite(buf_, 1, len + 1, stdout);
        } else if (padTo_ < kCap) {
            std::memset(buf_ + len, ' ', padTo_ - len);
            buf_[padTo_] = '\n';
            std::fwrite(buf_, 1, padTo_ + 1, stdout);
        } else {
            // Blanks beyond the buffer: the record goes out in pieces.
            std::fwrite(buf_, 1, len, stdout);
            std::memset(buf_, ' ', kCap);
            for (std::size_t left = padTo_ - len; left > 0;) {
                const std::size_t m = left < kCap ? left : kCap;
                std::fwrite(buf_, 1, m, stdout);
                left -= m;
            }
            std::fputc('\n', stdout);
        }
        std::fflush(stdout);
        pos_ = 0;
        len_ = 0;
        padTo_ = 0;
    }

private:
    // The widest record holds a 6-column head and six 11-column numbers
    // with two group blanks (74 columns).
    static constexpr std::size_t kCap = 128;
    char buf_[kCap];
    int pos_ = 0;
    int len_ = 0;
    std::size_t padTo_ = 0;
};

// Length without trailing blanks, as Fortran's LEN_TRIM.
std::size_t len_trim(std::string_view s) {
    std::size_t n = s.size();
    while (n > 0 && s[n - 1] == ' ') --n;
    return n;
}

// A repeated group of numbers in a format: per record, `groups` groups of
// `per` items with `gap` blanks before each group and `lead` blanks before
// each item; a record first moves to column `tab` when it is above 0.
struct Groups {
    int tab, groups, gap, per, lead;
};
constexpr Groups kI4{0, 2, 3, 5, 0};       // (2(3x,5i4))
constexpr Groups kE10{0, 2, 1, 3, 1};      // (2(1x,3(1x,1p,e10.3)))
constexpr Groups kE10AtT7{7, 2, 1, 3, 1};  // (T7,2(1x,3(1x,1p,e10.3)))
constexpr Groups kE12{0, 1, 0, 5, 1};      // (5(1x,1p,e12.5))

// Items 0..n-1 in records of the layout g, as the format reverts to its
// group; put(rec, i) writes item i. Whatever rec already holds (a head)
// goes out with the first record; at least one record is written.
template <class Put>
void numbers(Record& rec, int n, const Groups& g, Put put) {
    int i = 0;
    do {
        if (g.tab > 0) rec.tab(g.tab);
        for (int k = 0; k < g.groups && i < n; ++k) {
            rec.skip(g.gap);
            for (int j = 0; j < g.per && i < n; ++j) {
                rec.skip(g.lead);
                put(rec, i++);
            }
        }
        rec.emit();
    } while (i < n);
}

void label_record(std::string_view label) { ListRecord() << label << ListRecord::end; }

}  // namespace

void wrival(int unit, std::string_view label, double x) {
    if (unit < 1) return;
    ListRecord() << label << x << ListRecord::end;
}

void wriivl(int unit, std::string_view label, int k) {
    if (unit < 1) return;
    ListRecord() << label << static_cast<std::int32_t>(k) << ListRecord::end;
}

// ((2(3x,5i4))): ten integers per record in two groups of five.
void wriivc(int unit, std::string_view label, const int* iv, int n) {
    if (unit < 1) return;
    label_record(label);
    Record rec;
    numbers(rec, n, kI4, [iv](Record& r, int i) { r.put_i(4, iv[i]); });
}

void wrivec(int unit, std::string_view label, const double* v, int n) {
    if (unit < 1) return;
    const auto put = [v](Record& r, int i) { r.put_e(10, 3, v[i]); };
    if (len_trim(label) > 6) {
        // ((2(1x,3(1x,1p,e10.3)))): six per record, no column move.
        label_record(label);
        Record rec;
        numbers(rec, n, kE10, put);
        return;
    }
    // The label's significant part fits in columns 1-6; whatever follows
    // is blanks, which T7 and the numbers overwrite.
    Record rec;
    const std::size_t head = label.size() < 6 ? label.size() : 6;
    rec.put(label.data(), static_cast<int>(head));
    rec.pad_to(label.size());
    numbers(rec, n, kE10AtT7, put);
}

// (5(1x,1p,e12.5)): five per record.
void wrivec5(int unit, std::string_view label, const double* v, int n) {
    if (unit < 1) return;
    label_record(label);
    Record rec;
    numbers(rec, n, kE12, [v](Record& r, int i) { r.put_e(12, 5, v[i]); });
}

void wrimat(int unit, std::string_view label, const double* A, int LA, int nRow, int nCol) {
    if (unit < 1) return;
    label_record(label);
    for (int i = 1; i <= nRow; ++i) {
        Record rec;
        rec.put_i(4, i);
        const double* row = A + (i - 1);
        numbers(rec, nCol, kE10AtT7, [row, LA](Record& r, int j) {
            r.put_e(10, 3, row[static_cast<std::ptrdiff_t>(j) * LA]);
        });
    }
}

}  // namespace tervak
