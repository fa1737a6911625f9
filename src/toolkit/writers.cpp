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

// The values after the head of "(head,(T7,2(1x,3(1x,1p,e10.3))))": six per
// record from column 7, two groups of three; each further record starts
// again at column 7. The head has already been put into rec. get(i) yields
// the i-th value, i = 0..n-1.
template <class Get>
void t7_groups(Record& rec, int n, Get get) {
    int i = 0;
    for (;;) {
        rec.tab(7);
        for (int g = 0; g < 2; ++g) {
            rec.skip(1);
            for (int j = 0; j < 3; ++j) {
                if (i >= n) {
                    rec.emit();
                    return;
                }
                rec.skip(1);
                rec.put_e(10, 3, get(i++));
            }
        }
        if (i >= n) {
            rec.emit();
            return;
        }
        rec.emit();
    }
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
    int i = 0;
    do {
        for (int g = 0; g < 2 && i < n; ++g) {
            rec.skip(3);
            for (int j = 0; j < 5 && i < n; ++j) rec.put_i(4, iv[i++]);
        }
        rec.emit();
    } while (i < n);
}

void wrivec(int unit, std::string_view label, const double* v, int n) {
    if (unit < 1) return;
    if (len_trim(label) > 6) {
        // ((2(1x,3(1x,1p,e10.3)))): six per record, no column move.
        label_record(label);
        Record rec;
        int i = 0;
        do {
            for (int g = 0; g < 2 && i < n; ++g) {
                rec.skip(1);
                for (int j = 0; j < 3 && i < n; ++j) {
                    rec.skip(1);
                    rec.put_e(10, 3, v[i++]);
                }
            }
            rec.emit();
        } while (i < n);
        return;
    }
    // The label's significant part fits in columns 1-6; whatever follows
    // is blanks, which T7 and the numbers overwrite.
    Record rec;
    const std::size_t head = label.size() < 6 ? label.size() : 6;
    rec.put(label.data(), static_cast<int>(head));
    rec.pad_to(label.size());
    t7_groups(rec, n, [v](int i) { return v[i]; });
}

// (5(1x,1p,e12.5)): five per record.
void wrivec5(int unit, std::string_view label, const double* v, int n) {
    if (unit < 1) return;
    label_record(label);
    Record rec;
    int i = 0;
    do {
        for (int j = 0; j < 5 && i < n; ++j) {
            rec.skip(1);
            rec.put_e(12, 5, v[i++]);
        }
        rec.emit();
    } while (i < n);
}

void wrimat(int unit, std::string_view label, const double* A, int LA, int nRow, int nCol) {
    if (unit < 1) return;
    label_record(label);
    for (int i = 1; i <= nRow; ++i) {
        Record rec;
        rec.put_i(4, i);
        const double* row = A + (i - 1);
        t7_groups(rec, nCol, [row, LA](int j) {
            return row[static_cast<std::ptrdiff_t>(j) * LA];
        });
    }
}

}  // namespace tervak
