// SPDX-License-Identifier: Apache-2.0
// The commands beyond reading and writing values. Each adds itself to the parser
// like those of command.h.
#pragma once

#include "command.h"

namespace tavdb::command {

void addFind(CLI::App &app, Action &action);
void addReset(CLI::App &app, Action &action);
void addSave(CLI::App &app, Action &action);
void addMove(CLI::App &app, Action &action);
void addRemove(CLI::App &app, Action &action);
void addLock(CLI::App &app, Action &action);
void addUnlock(CLI::App &app, Action &action);
void addLocks(CLI::App &app, Action &action);
void addSessions(CLI::App &app, Action &action);
void addDump(CLI::App &app, Action &action);
void addDebug(CLI::App &app, Action &action);

}  // namespace tavdb::command
