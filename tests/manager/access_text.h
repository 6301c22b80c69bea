// SPDX-License-Identifier: Apache-2.0
// What a call cost, as one line: how often it opened each medium, and how many
// transfers of how many bytes it made there. The order of steps is not part of
// it; the tests of the modules hold that.
#pragma once

#include <string>

namespace tavdb_test {

/**
 * The accesses in the event log, media in the order of their first access, as
 * "component 2 read 2/68; data 1 written 1/4": the component medium was opened and
 * closed twice and 68 bytes came in 2 reads. Seeks and syncs are counted alike. A
 * medium that was not closed as often as opened is followed by "closed n".
 */
std::string accessText();

}  // namespace tavdb_test
