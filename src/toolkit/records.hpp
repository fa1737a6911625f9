// Fortran-compatible output records on standard output.
//
// ListRecord builds one list-directed record exactly as the GNU Fortran
// runtime lays it out for write(6,*): a leading blank, a blank before every
// item except a character item that directly follows a character item,
// int32 in 11 columns, float64 in 25 columns with 17 significant digits;
// an empty list writes an empty record.
// The record is built in a fixed buffer (no heap) and written with its
// newline in one call, then flushed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tervak {

class ListRecord {
public:
    ListRecord();
    ListRecord& operator<<(std::string_view text);
    ListRecord& operator<<(const char* text) { return *this << std::string_view(text); }
    ListRecord& operator<<(std::int32_t k);
    ListRecord& operator<<(double x);
    // Writes the record to standard output when unit >= 1, then flushes.
    void write(int unit = 6);
    struct End {};
    static constexpr End end{};
    // `ListRecord() << a << b << ListRecord::end;` writes the record to unit 6.
    ListRecord& operator<<(End) {
        write(6);
        return *this;
    }

private:
    void put(std::string_view s);
    void put_number(std::string_view field);
    static constexpr std::size_t kCap = 4096;
    char buf_[kCap];
    std::size_t len_ = 0;
    bool lastWasText_ = false;
    bool empty_ = true;
};

// One list-directed record holding one text: " " + text.
void say(std::string_view text);

// Ends the process as a Fortran STOP with a message does: "STOP <message>"
// on standard error, non-zero exit status. Message lines that belong on
// standard output are written by the caller before.
[[noreturn]] void stop_run(std::string_view message);

// Edit-descriptor fields (exposed for the writers and their tests).
// "1p,eW.D" with one digit before the point; writes exactly W characters.
void format_1pe(char* out, int width, int digits, double x);
// "iW"; asterisks on overflow.
void format_i(char* out, int width, std::int32_t k);
// List-directed field of a real (25 columns) and an int32 (11 columns).
void format_list_real(char* out, double x);
void format_list_int(char* out, std::int32_t k);

}  // namespace tervak
