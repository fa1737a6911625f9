#include "kernels/return_scheme.hpp"

#include <cstring>

namespace tervak::rm {

void invalid_area(std::string_view kernel) {
    constexpr std::string_view head = "incorrect iArea in ";
    ListRecord() << " " << head << kernel << ListRecord::end;
    char text[128];
    std::size_t n = head.size();
    std::memcpy(text, head.data(), n);
    const std::size_t k = kernel.size() < sizeof text - n ? kernel.size() : sizeof text - n;
    std::memcpy(text + n, kernel.data(), k);
    stop_run(std::string_view(text, n + k));
}

}  // namespace tervak::rm
