// SPDX-License-Identifier: Apache-2.0
// The compiler calls a function in front of every store; here are these functions,
// and those of libc that store, as far as the tables are written with them.
#include "multiprocess/death_point.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace tavdb_test {
namespace {

constexpr size_t kLastMappings = 64;

struct Mapping {
    uintptr_t begin;
    uintptr_t end;
};
Mapping mappings[kLastMappings];  ///< a ring: the test itself maps and unmaps tables too
size_t mappingCount = 0;
DeathPoint *armed = nullptr;

bool isShared(uintptr_t address) {
    return std::any_of(std::begin(mappings), std::end(mappings),
                       [address](const Mapping &mapping) { return address >= mapping.begin && address < mapping.end; });
}

void beforeStore(const volatile void *address) {
    if (armed == nullptr || !isShared(reinterpret_cast<uintptr_t>(address)) || armed->seen++ != armed->store)
        return;
    armed->isReached = true;
    for (;;)
        pause();
}

}  // namespace

void stopAt(DeathPoint &point) {
    armed = &point;
}

}  // namespace tavdb_test

using namespace tavdb_test;

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the compiler's and the linker's.
void __tsan_init() {}
void __tsan_read_range(void *, size_t) {}
void __tsan_write_range(void *address, size_t) {
    beforeStore(address);
}
#define TAVDB_TEST_ACCESS(bytes)                        \
    void __tsan_read##bytes(void *) {}                  \
    void __tsan_write##bytes(void *address) {           \
        beforeStore(address);                           \
    }                                                   \
    void __tsan_unaligned_read##bytes(void *) {}        \
    void __tsan_unaligned_write##bytes(void *address) { \
        beforeStore(address);                           \
    }
TAVDB_TEST_ACCESS(1)
TAVDB_TEST_ACCESS(2)
TAVDB_TEST_ACCESS(4)
TAVDB_TEST_ACCESS(8)
TAVDB_TEST_ACCESS(16)
#undef TAVDB_TEST_ACCESS

#define TAVDB_TEST_ATOMIC(bits)                                                                                   \
    uint##bits##_t __tsan_atomic##bits##_load(const volatile uint##bits##_t *address, int) {                      \
        return __atomic_load_n(address, __ATOMIC_SEQ_CST);                                                        \
    }                                                                                                             \
    void __tsan_atomic##bits##_store(volatile uint##bits##_t *address, uint##bits##_t value, int) {               \
        beforeStore(address);                                                                                     \
        __atomic_store_n(address, value, __ATOMIC_SEQ_CST);                                                       \
    }                                                                                                             \
    uint##bits##_t __tsan_atomic##bits##_fetch_add(volatile uint##bits##_t *address, uint##bits##_t value, int) { \
        beforeStore(address);                                                                                     \
        return __atomic_fetch_add(address, value, __ATOMIC_SEQ_CST);                                              \
    }
TAVDB_TEST_ATOMIC(32)
bool __tsan_atomic32_compare_exchange_strong(volatile uint32_t *address, uint32_t *expected, uint32_t value, int, int) {
    beforeStore(address);
    return __atomic_compare_exchange_n(address, expected, value, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
}
#if __SIZEOF_POINTER__ == 8
TAVDB_TEST_ATOMIC(64)
#endif
#undef TAVDB_TEST_ATOMIC

void *__real_mmap64(void *wanted, size_t length, int protection, int flags, int fd, off_t offset);
void *__wrap_mmap64(void *wanted, size_t length, int protection, int flags, int fd, off_t offset) {
    void *const address = __real_mmap64(wanted, length, protection, flags, fd, offset);
    const auto begin = reinterpret_cast<uintptr_t>(address);
    if (address != MAP_FAILED && (flags & MAP_SHARED) != 0)
        mappings[mappingCount++ % kLastMappings] = {begin, begin + length};
    return address;
}

void *__real_memset(void *to, int byte, size_t length);
void *__wrap_memset(void *to, int byte, size_t length) {
    beforeStore(to);
    return __real_memset(to, byte, length);
}
void *__real_memcpy(void *to, const void *from, size_t length);
void *__wrap_memcpy(void *to, const void *from, size_t length) {
    beforeStore(to);
    return __real_memcpy(to, from, length);
}
char *__real_strncpy(char *to, const char *from, size_t length);
char *__wrap_strncpy(char *to, const char *from, size_t length) {
    beforeStore(to);
    return __real_strncpy(to, from, length);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
