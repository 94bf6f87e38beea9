#include "core/orvoMemoryAccess.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr unsigned PageSize = 4096;

/// The page around a physical address, for as long as it lives.
class Page
{
public:
    explicit Page(int address)
    {
        // Addresses in the upper half of 32 bits come as negative numbers.
        const auto physical = static_cast<uint32_t>(address);
        m_device = open("/dev/mem", O_RDWR | O_SYNC | O_CLOEXEC);
        if (m_device < 0) {
            std::fputs("Cannot open /dev/mem", stderr);
            return;
        }
        void* const memory = mmap(nullptr, PageSize, PROT_READ | PROT_WRITE, MAP_SHARED, m_device,
                                  static_cast<off_t>(physical & ~(PageSize - 1)));
        if (memory == MAP_FAILED) {
            std::fputs("mmap failed", stderr);
            return;
        }
        m_memory = memory;
        m_offset = physical & (PageSize - 1);
    }

    ~Page()
    {
        if (m_memory)
            munmap(m_memory, PageSize);
        if (m_device >= 0)
            close(m_device);
    }

    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;

    bool isMapped() const { return m_memory; }

    /// The memory at the address. Volatile: registers are loaded and stored in one piece, exactly once.
    template <typename Unit>
    volatile Unit* at() const
    {
        return reinterpret_cast<volatile Unit*>(static_cast<uint8_t*>(m_memory) + m_offset);
    }
    const void* bytes() const { return static_cast<const uint8_t*>(m_memory) + m_offset; }

private:
    int m_device = -1;
    void* m_memory = nullptr;
    unsigned m_offset = 0;
};

} // namespace

bool OrvoMemoryAccess::readMem(int address, int length, unsigned long* value)
{
    const Page page(address);
    if (!page.isMapped())
        return false;
    switch (length) {
    case 1:
        *value = *page.at<uint8_t>();
        return true;
    case 2:
        *value = *page.at<uint16_t>();
        return true;
    case 4:
        *value = *page.at<uint32_t>();
        return true;
    default:
        // A negative length is no small one.
        if (static_cast<unsigned>(length) > PageSize) {
            std::fprintf(stderr, "%s: Invalid length: %d\n", __func__, length);
            return false;
        }
        std::memcpy(value, page.bytes(), static_cast<size_t>(length));
        return true;
    }
}

bool OrvoMemoryAccess::writeMem(int address, int length, unsigned int value)
{
    const Page page(address);
    if (!page.isMapped())
        return false;
    switch (length) {
    case 1:
        *page.at<uint8_t>() = static_cast<uint8_t>(value);
        return value <= UINT8_MAX;
    case 2:
        *page.at<uint16_t>() = static_cast<uint16_t>(value);
        return value <= UINT16_MAX;
    case 4:
        *page.at<uint32_t>() = value;
        return true;
    default:
        std::fprintf(stderr, "%s:Unknow type length\n", __func__);
        return value == 0;
    }
}
