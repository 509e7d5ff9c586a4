// Helpers shared by the colour match tests: list holders, entry builders, a failing allocator.
#pragma once

#include <PlimBitmapLib/PlimBitmapLib.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace cmtest {

struct ReleaseObject {
    void operator()(const void *cf) const {
        if (cf) CFRelease(cf);
    }
};
using List = std::unique_ptr<__PlimCFColorMatchList, ReleaseObject>;

// An entry whose arrays are heap blocks of exactly the declared sizes, so that reading past
// them shows up under the address sanitizer.
struct Entry {
    SInt32 options;
    std::vector<PlimColorMatchComponent> components;
    std::vector<float> replacement;

    PlimColorMatchEntry record() {
        return PlimColorMatchEntry{options, components.data(), replacement.data()};
    }
};

inline bool Add(PlimCFColorMatchList list, Entry entry) {
    PlimColorMatchEntry record = entry.record();
    return PlimCFColorMatchListAddEntry(list, &record);
}

inline List MakeList(UInt32 options, UInt32 n, std::vector<Entry> entries,
                     CFAllocatorRef allocator = kCFAllocatorDefault) {
    List list(PlimCFColorMatchListCreate(allocator, options, n));
    if (!list) return list;
    for (Entry &entry : entries)
        if (!Add(list.get(), entry)) return List();
    return list;
}

inline std::string Text(CFStringRef string) {
    if (string == nullptr) return "<null>";
    CFIndex size = CFStringGetMaximumSizeForEncoding(CFStringGetLength(string),
                                                     kCFStringEncodingUTF8) + 1;
    std::string bytes(static_cast<size_t>(size), '\0');
    if (!CFStringGetCString(string, bytes.data(), size, kCFStringEncodingUTF8)) return "<bad>";
    bytes.resize(std::char_traits<char>::length(bytes.c_str()));
    return bytes;
}

// Succeeds `budget` times (each allocation or reallocation counts), then fails; counts the
// blocks it has handed out and not yet taken back.
class FailingAllocator {
public:
    FailingAllocator() {
        CFAllocatorContext context = {0,       this,       nullptr,     nullptr, nullptr,
                                      Allocate, Reallocate, Deallocate, nullptr};
        mAllocator = CFAllocatorCreate(kCFAllocatorDefault, &context);
    }
    ~FailingAllocator() {
        if (mAllocator) CFRelease(mAllocator);
    }
    FailingAllocator(const FailingAllocator &) = delete;
    FailingAllocator &operator=(const FailingAllocator &) = delete;

    CFAllocatorRef get() const { return mAllocator; }
    void SetBudget(long budget) { mBudget = budget; }
    void Unlimited() { mBudget = -1; }
    long Live() const { return mLive; }

private:
    bool Spend() {
        if (mBudget == 0) return false;
        if (mBudget > 0) mBudget -= 1;
        return true;
    }
    static void *Allocate(CFIndex size, CFOptionFlags, void *info) {
        auto *self = static_cast<FailingAllocator *>(info);
        if (!self->Spend()) return nullptr;
        void *block = std::malloc(static_cast<size_t>(size));
        if (block) self->mLive += 1;
        return block;
    }
    static void *Reallocate(void *ptr, CFIndex size, CFOptionFlags, void *info) {
        auto *self = static_cast<FailingAllocator *>(info);
        if (!self->Spend()) return nullptr;
        return std::realloc(ptr, static_cast<size_t>(size));
    }
    static void Deallocate(void *ptr, void *info) {
        static_cast<FailingAllocator *>(info)->mLive -= 1;
        std::free(ptr);
    }

    CFAllocatorRef mAllocator = nullptr;
    long mBudget = -1;
    long mLive = 0;
};

}  // namespace cmtest
