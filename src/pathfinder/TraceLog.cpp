#include "TraceLog.h"

#include <algorithm>
#include <charconv>

namespace PathFinder {

const char TraceLog::kDigitPairs[201] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

namespace {

unsigned DigitCount(uint64_t value) {
    unsigned count = 1;
    for (; value >= 10000; value /= 10000) count += 4;
    return count + (value >= 10) + (value >= 100) + (value >= 1000);
}

}  // namespace

char *TraceLog::LongDigits(char *out, uint64_t value) {
    char *const end = out + DigitCount(value);
    char *p = end;
    while (value >= 100) {
        p -= 2;
        std::memcpy(p, kDigitPairs + 2 * (value % 100), 2);
        value /= 100;
    }
    if (value >= 10)
        std::memcpy(p - 2, kDigitPairs + 2 * value, 2);
    else
        p[-1] = static_cast<char>('0' + value);
    return end;
}

char *TraceLog::OtherCoordinate(char *out, float value) {
    const double v = value;
    if (v > -1e6 && v < 0 && std::floor(v) == v) {
        *out++ = '-';
        return Digits(out, static_cast<uint64_t>(-v));
    }
    return std::to_chars(out, out + kCoordinateRoom, v, std::chars_format::general, 6).ptr;
}

void TraceLog::Grow(size_t room) {
    const size_t capacity = std::max({size_ + room, 2 * capacity_, size_t{1} << 16});
    std::unique_ptr<char[]> text(new char[capacity]);
    if (size_) std::memcpy(text.get(), text_.get(), size_);
    text_ = std::move(text);
    capacity_ = capacity;
}

void TraceLog::WriteTo(std::FILE *stream) {
    if (size_) std::fwrite(text_.get(), 1, size_, stream);
    std::fflush(stream);
    size_ = 0;
}

}  // namespace PathFinder
