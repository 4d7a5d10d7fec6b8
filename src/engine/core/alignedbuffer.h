// The one allocator of every buffer that the kernel copies file bytes into
// or out of: read windows, reader threads' buffers, output and copy
// buffers. Such a buffer starts on a page boundary. The kernel's copy to or
// from user memory is several times slower when the user's side starts a
// few bytes off a cache line, which is where new[] and malloc put a large
// block (16 bytes past a page): a 512 KiB pread into such a block took 3.6
// times as long as into an aligned one.
//
// The bytes are left uninitialised, as a run over many small files must not
// clear a buffer per file.
#pragma once

#include <cstddef>
#include <string>
#include <utility>

namespace brindlex {

namespace aligned {

inline constexpr std::size_t kPage = 4096;

// `size` bytes (at least one) on a page boundary; throws std::bad_alloc.
void* allocate(std::size_t size);
void release(void* p) noexcept;

}  // namespace aligned

template <typename Byte = unsigned char>
class AlignedBuffer {
    static_assert(sizeof(Byte) == 1, "a buffer of bytes");

public:
    AlignedBuffer() = default;
    explicit AlignedBuffer(std::size_t size)
        : data_(static_cast<Byte*>(aligned::allocate(size))), size_(size)
    {
    }
    ~AlignedBuffer() { aligned::release(data_); }
    AlignedBuffer(AlignedBuffer&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0))
    {
    }
    AlignedBuffer& operator=(AlignedBuffer&& other) noexcept
    {
        AlignedBuffer gone(std::move(*this));
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
        return *this;
    }

    Byte* data() { return data_; }
    const Byte* data() const { return data_; }
    Byte* get() { return data_; }
    const Byte* get() const { return data_; }
    std::size_t size() const { return size_; }
    explicit operator bool() const { return data_ != nullptr; }

private:
    Byte* data_ = nullptr;
    std::size_t size_ = 0;
};

// The same allocation for a buffer that grows: a std::vector or a
// std::basic_string with this allocator keeps its bytes on a page boundary
// (a string's first few bytes excepted, which it holds inside itself).
template <typename T>
struct PageAllocator {
    using value_type = T;
    PageAllocator() = default;
    template <typename U>
    PageAllocator(const PageAllocator<U>&) noexcept
    {
    }
    T* allocate(std::size_t n) { return static_cast<T*>(aligned::allocate(n * sizeof(T))); }
    void deallocate(T* p, std::size_t) noexcept { aligned::release(p); }
    friend bool operator==(const PageAllocator&, const PageAllocator&) { return true; }
};

using PageString = std::basic_string<char, std::char_traits<char>, PageAllocator<char>>;

}  // namespace brindlex
