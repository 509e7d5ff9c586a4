// Read and write streams on files, synchronous, over POSIX descriptors.
#include "RuntimeInternal.h"

#include <PlimBitmapLib/platform/CFStream.h>
#include <PlimBitmapLib/platform/CFString.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace {

constexpr CFIndex kBlockSize = 64 * 1024;

struct StreamCommon {
    CFURLRef url;
    int fd;
    CFStreamStatus status;
    int error;  // errno of the failure that set the error status
};

void SetError(StreamCommon &s, int error) {
    s.status = kCFStreamStatusError;
    s.error = error;
}

CFStreamError ErrorOf(const StreamCommon &s) {
    if (s.status != kCFStreamStatusError) return CFStreamError{0, 0};
    return CFStreamError{kCFStreamErrorDomainPOSIX, static_cast<SInt32>(s.error)};
}

bool PathOf(CFURLRef url, char (&path)[PATH_MAX]) {
    return CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8 *>(path), PATH_MAX);
}

void CloseCommon(StreamCommon &s) {
    if (s.fd >= 0) ::close(s.fd);
    s.fd = -1;
}

template <typename T>
T *CreateStream(CFAllocatorRef alloc, CFTypeID typeID, CFURLRef fileURL) {
    if (!fileURL) return nullptr;
    auto *stream = static_cast<T *>(const_cast<void *>(
        _CFRuntimeCreateInstance(alloc, typeID, sizeof(T) - sizeof(CFRuntimeBase), nullptr)));
    if (!stream) return nullptr;
    stream->common.url = static_cast<CFURLRef>(CFRetain(fileURL));
    stream->common.fd = -1;
    stream->common.status = kCFStreamStatusNotOpen;
    stream->common.error = 0;
    return stream;
}

}  // namespace

struct __CFReadStream {
    CFRuntimeBase base;
    StreamCommon common;
    UInt8 *block;  // the stream's own buffer for CFReadStreamGetBuffer
};

struct __CFWriteStream {
    CFRuntimeBase base;
    StreamCommon common;
};

namespace plim::runtime {
namespace {

void ReadStreamFinalize(CFTypeRef cf) {
    auto *stream = static_cast<__CFReadStream *>(const_cast<void *>(cf));
    CloseCommon(stream->common);
    if (stream->block) CFAllocatorDeallocate(CFGetAllocator(cf), stream->block);
    CFRelease(stream->common.url);
}

void WriteStreamFinalize(CFTypeRef cf) {
    auto *stream = static_cast<__CFWriteStream *>(const_cast<void *>(cf));
    CloseCommon(stream->common);
    CFRelease(stream->common.url);
}

// Reads up to `length` bytes, retrying interrupted calls; updates the status.
CFIndex ReadSome(__CFReadStream *stream, UInt8 *buffer, CFIndex length) {
    StreamCommon &s = stream->common;
    if (s.status == kCFStreamStatusAtEnd) return 0;
    if (s.status != kCFStreamStatusOpen) return -1;
    ssize_t n;
    do {
        n = ::read(s.fd, buffer, static_cast<size_t>(length));
    } while (n < 0 && errno == EINTR);
    if (n < 0) {
        SetError(s, errno);
        return -1;
    }
    if (n == 0) s.status = kCFStreamStatusAtEnd;
    return static_cast<CFIndex>(n);
}

}  // namespace

const CFRuntimeClass kReadStreamClass = {0, "CFReadStream", nullptr, nullptr, ReadStreamFinalize,
                                         nullptr, nullptr, nullptr, nullptr};
const CFRuntimeClass kWriteStreamClass = {0, "CFWriteStream", nullptr, nullptr, WriteStreamFinalize,
                                          nullptr, nullptr, nullptr, nullptr};

}  // namespace plim::runtime

using namespace plim::runtime;

extern "C" {

CFTypeID CFReadStreamGetTypeID(void) { return kReadStreamTypeID; }
CFTypeID CFWriteStreamGetTypeID(void) { return kWriteStreamTypeID; }

CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef alloc, CFURLRef fileURL) {
    return CreateStream<__CFReadStream>(alloc, kReadStreamTypeID, fileURL);
}

Boolean CFReadStreamOpen(CFReadStreamRef stream) {
    StreamCommon &s = stream->common;
    if (s.status != kCFStreamStatusNotOpen) return false;
    char path[PATH_MAX];
    if (!stream->block)
        stream->block = static_cast<UInt8 *>(CFAllocatorAllocate(CFGetAllocator(stream), kBlockSize, 0));
    if (!stream->block || !PathOf(s.url, path)) {
        SetError(s, stream->block ? ENAMETOOLONG : ENOMEM);
        return false;
    }
    if ((s.fd = ::open(path, O_RDONLY | O_CLOEXEC)) < 0) {
        SetError(s, errno);
        return false;
    }
    s.status = kCFStreamStatusOpen;
    return true;
}

CFStreamStatus CFReadStreamGetStatus(CFReadStreamRef stream) { return stream->common.status; }

CFStreamError CFReadStreamGetError(CFReadStreamRef stream) { return ErrorOf(stream->common); }

const UInt8 *CFReadStreamGetBuffer(CFReadStreamRef stream, CFIndex maxBytesToRead, CFIndex *numBytesRead) {
    CFIndex want = maxBytesToRead > 0 && maxBytesToRead < kBlockSize ? maxBytesToRead : kBlockSize;
    CFIndex n = stream->block ? ReadSome(stream, stream->block, want) : -1;
    if (numBytesRead) *numBytesRead = n;
    return n > 0 ? stream->block : nullptr;
}

CFIndex CFReadStreamRead(CFReadStreamRef stream, UInt8 *buffer, CFIndex bufferLength) {
    if (!buffer || bufferLength < 0) return -1;
    if (bufferLength == 0) return 0;
    return ReadSome(stream, buffer, bufferLength);
}

void CFReadStreamClose(CFReadStreamRef stream) {
    CloseCommon(stream->common);
    stream->common.status = kCFStreamStatusClosed;
}

CFWriteStreamRef CFWriteStreamCreateWithFile(CFAllocatorRef alloc, CFURLRef fileURL) {
    return CreateStream<__CFWriteStream>(alloc, kWriteStreamTypeID, fileURL);
}

Boolean CFWriteStreamOpen(CFWriteStreamRef stream) {
    StreamCommon &s = stream->common;
    if (s.status != kCFStreamStatusNotOpen) return false;
    char path[PATH_MAX];
    if (!PathOf(s.url, path)) {
        SetError(s, ENAMETOOLONG);
        return false;
    }
    if ((s.fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) < 0) {
        SetError(s, errno);
        return false;
    }
    s.status = kCFStreamStatusOpen;
    return true;
}

CFStreamStatus CFWriteStreamGetStatus(CFWriteStreamRef stream) { return stream->common.status; }

CFStreamError CFWriteStreamGetError(CFWriteStreamRef stream) { return ErrorOf(stream->common); }

CFIndex CFWriteStreamWrite(CFWriteStreamRef stream, const UInt8 *buffer, CFIndex bufferLength) {
    StreamCommon &s = stream->common;
    if (s.status != kCFStreamStatusOpen || !buffer || bufferLength < 0) return -1;
    CFIndex written = 0;
    while (written < bufferLength) {
        ssize_t n = ::write(s.fd, buffer + written, static_cast<size_t>(bufferLength - written));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            SetError(s, n < 0 ? errno : EIO);
            return -1;
        }
        written += static_cast<CFIndex>(n);
    }
    return written;
}

void CFWriteStreamClose(CFWriteStreamRef stream) {
    CloseCommon(stream->common);
    stream->common.status = kCFStreamStatusClosed;
}

}  // extern "C"
