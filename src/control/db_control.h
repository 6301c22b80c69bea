// SPDX-License-Identifier: Apache-2.0
// The table of open databases: what other modules ask of it besides its public
// functions.
#pragma once

#include "tavdb_modules.h"

namespace tavdb {

/// The open database of a session, or null.
inline const tavDBMDescription *databaseOf(const tavDBMSession *session) {
    return session != nullptr ? db_getDb(session->dbId) : nullptr;
}

}  // namespace tavdb
