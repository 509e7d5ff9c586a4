// The running debug log of one trace: its lines are formatted here into one buffer, which is
// written to standard output at once when the trace is done. Large masks log millions of lines,
// and one formatted call per line cost more than the trace itself.
#pragma once

#include "PathFinder.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

namespace PathFinder {

// The lines of the debug listing of `list` through a sink, which writes "Path <n>" with
// Header(n), a line for a point with Point("<text before x>", point) (the line goes on with
// x, ", ", y and ")"), and any other line with Line("<text>"); every line ends with a newline.
template <typename Sink>
void WriteListing(Sink &sink, const SubpathList &list) {
    size_t number = 0;
    for (const Subpath &subpath : list) {
        sink.Header(number++);
        for (const PathElement &element : subpath) {
            switch (element.type) {
            case kCGPathElementMoveToPoint: sink.Point("\tMoveToPoint:  (", element.point); break;
            case kCGPathElementAddLineToPoint: sink.Point("\tAddLineToPoint:  (", element.point); break;
            case kCGPathElementCloseSubpath: sink.Line("\tCloseSubpath"); break;
            default: sink.Line("UNRECOGNIZED TYPE"); break;
            }
        }
    }
}

class TraceLog {
public:
    TraceLog() = default;
    TraceLog(const TraceLog &other) {
        Reserve(other.size_);
        if (other.size_) std::memcpy(text_.get(), other.text_.get(), other.size_);
        size_ = other.size_;
    }
    TraceLog &operator=(const TraceLog &) = delete;

    // "starting subpath (%d, %d)\n", "adding line (%d, %d)\n" and "closing subpath\n".
    void StartingSubpath(int column, int row) { PixelLine("starting subpath (", column, row); }
    void AddingLine(int column, int row) { PixelLine("adding line (", column, row); }
    void ClosingSubpath() { Line("closing subpath"); }
    // The debug listing of a subpath list, as operator<< writes it to a stream in its default
    // state.
    void Listing(const SubpathList &list) { WriteListing(*this, list); }
    // Text written as it is.
    template <size_t N>
    void Text(const char (&text)[N]) {
        Reserve(N);
        std::memcpy(End(), text, N - 1);
        size_ += N - 1;
    }

    // Makes room for `bytes` more at once, so that the log need not grow bit by bit.
    void Expect(size_t bytes) { Reserve(bytes); }

    std::string_view Logged() const { return {text_.get(), size_}; }
    // Writes everything logged to `stream` in one call, flushes it, and empties the log.
    void WriteTo(std::FILE *stream);

    // The listing's sink.
    void Header(size_t number) {
        Reserve(kLineRoom);
        char *out = End();
        std::memcpy(out, "Path ", 5);
        out = Digits(out + 5, number);
        *out++ = '\n';
        Finish(out);
    }
    template <size_t N>
    void Point(const char (&prefix)[N], CGPoint point) {
        static_assert(N < kLineRoom - 2 * kCoordinateRoom - 4);
        Reserve(kLineRoom);
        char *out = End();
        std::memcpy(out, prefix, N - 1);
        out = Coordinate(out + N - 1, point.x);
        *out++ = ',', *out++ = ' ';
        out = Coordinate(out, point.y);
        *out++ = ')', *out++ = '\n';
        Finish(out);
    }
    template <size_t N>
    void Line(const char (&text)[N]) {
        Reserve(N);
        char *out = End();
        std::memcpy(out, text, N - 1);
        out[N - 1] = '\n';
        Finish(out + N);
    }

private:
    static constexpr size_t kLineRoom = 64;
    static constexpr size_t kCoordinateRoom = 16;  // "-1.23457e+06"; "-nan"

    // The decimal digits of `value` at `out`; returns the end. Numbers below 10000, which most
    // of the log's are, take two digit pairs at most.
    static char *Digits(char *out, uint64_t value) {
        if (value >= 10000) return LongDigits(out, value);
        const auto v = static_cast<unsigned>(value);
        if (v < 100) return LeadingPair(out, v);
        out = LeadingPair(out, v / 100);
        std::memcpy(out, kDigitPairs + 2 * (v % 100), 2);
        return out + 2;
    }
    // One or two digits of v < 100, without a leading zero.
    static char *LeadingPair(char *out, unsigned v) {
        if (v < 10) {
            *out = static_cast<char>('0' + v);
            return out + 1;
        }
        std::memcpy(out, kDigitPairs + 2 * v, 2);
        return out + 2;
    }
    static char *LongDigits(char *out, uint64_t value);
    static const char kDigitPairs[201];
    // A coordinate as a stream writes a double in its default state (general notation, six
    // significant digits, negative zero signed). Whole numbers below a million, which all the
    // tracer's coordinates are, come out as integers.
    static char *Coordinate(char *out, float value) {
        if (value >= 0.0f && value < 1e6f && static_cast<float>(static_cast<uint32_t>(value)) == value &&
            !std::signbit(value))
            return Digits(out, static_cast<uint32_t>(value));
        return OtherCoordinate(out, value);
    }
    static char *OtherCoordinate(char *out, float value);

    template <size_t N>
    void PixelLine(const char (&prefix)[N], int column, int row) {
        Reserve(kLineRoom);
        char *out = End();
        std::memcpy(out, prefix, N - 1);
        out = Signed(out + N - 1, column);
        *out++ = ',', *out++ = ' ';
        out = Signed(out, row);
        *out++ = ')', *out++ = '\n';
        Finish(out);
    }
    static char *Signed(char *out, int value) {
        if (value < 0) *out++ = '-';
        return Digits(out, value < 0 ? 0 - static_cast<uint64_t>(static_cast<int64_t>(value)) : static_cast<uint64_t>(value));
    }

    char *End() { return text_.get() + size_; }
    void Finish(char *end) { size_ = static_cast<size_t>(end - text_.get()); }
    void Reserve(size_t room) {
        if (capacity_ - size_ < room) Grow(room);
    }
    void Grow(size_t room);

    std::unique_ptr<char[]> text_;
    size_t size_ = 0, capacity_ = 0;
};

}  // namespace PathFinder
