// SPDX-License-Identifier: Apache-2.0
// Prints docs/ERRORS.md from the list of codes in tavdb_errors.h.
#include <cstdio>

#include "tavdb_errors.h"

namespace {

constexpr const char *kIntroduction =
    R"(# Result codes

A function of the library that returns a status returns 0 or one of these codes; one that
returns a key or a pointer returns 0. The code is then in the session's `errorCode`, and a
second word in `errorDetail`: an error number, a hook's result or a key, as the last column
says; else 0. Codes are constants of `tavdb_errors.h` with `TAVDB_ERR_` in front of the name.

A successful call leaves an older code in the session: look at it only after a failure, or
set it to 0 before the call. That is also how to notice a transfer that failed inside a
read or write that returned 0. Codes 75 and 76 are returned only; attaching and detaching
know no session and hand theirs out in other ways, which their descriptions tell.

Codes from 4096 (0x1000) on are those of the Linux platform's semaphores, 0x1000 with an error
number added; the session's detail is that error number.

| code | name | meaning | what to do |
|---:|---|---|---|
)";

}  // namespace

int main() {
    std::fputs(kIntroduction, stdout);
#define TAVDB_ROW(code, name, sentence, action) std::printf("| %d | `%s` | %s | %s |\n", code, #name, sentence, action);
    TAVDB_ERROR_LIST(TAVDB_ROW)
#undef TAVDB_ROW
    return std::fflush(stdout) == 0 ? 0 : 1;
}
