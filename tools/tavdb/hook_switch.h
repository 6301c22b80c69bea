// SPDX-License-Identifier: Apache-2.0
// Works a database without its hooks: for a hook file that names functions of
// another program, or libraries of another machine. The database stays the same
// one, with its locks and sessions.
#pragma once

namespace tavdb::command {

/// To be called before the database is attached.
void switchHooks(bool enabled);

}  // namespace tavdb::command
