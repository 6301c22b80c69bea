// SPDX-License-Identifier: Apache-2.0
// What programs are built against: the types of the functions that attach, open
// sessions and reach the shared tables, those of the platform behind them, and
// the layout of the records that cross the interface. Nothing is called here.
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "tavdb.h"
#include "tavdb_modules.h"
#include "tavdb_platform.h"

namespace {

template <typename Signature, typename Function>
constexpr bool is(Function *) {
    return std::is_same_v<Signature, Function>;
}

using Dump = int32_t(int32_t level, uint32_t *debugSize, uint32_t *ramSize);
using OnSet = int32_t(tavDBMSemaphoreSet *set);
using Create = int32_t(uint32_t *handle, int32_t, int32_t);
using Wait = int32_t(uint32_t handle, int32_t timeout);
using Post = int32_t(uint32_t handle);

TEST(Signatures, OfStartAndStop) {
    EXPECT_TRUE(is<int32_t(const tavDBMDescription *, int32_t *)>(&tavDBMInit));
    EXPECT_TRUE(is<int32_t(uint32_t)>(&tavDBMTerm));
}

TEST(Signatures, OfSessions) {
    EXPECT_TRUE(is<int32_t(tavDBMSession *, uint32_t)>(&tavDBMInitSession));
    EXPECT_TRUE(is<int32_t(tavDBMSession *)>(&tavDBMTermSession));
    EXPECT_TRUE(is<int32_t(const char *)>(&session_init));
    EXPECT_TRUE(is<int32_t()>(&session_term));
    EXPECT_TRUE(is<int32_t(tavDBMSession *, int32_t, uint32_t)>(&session_setError));
    EXPECT_TRUE(is<void(int32_t)>(&session_show));
}

TEST(Signatures, OfTheControlTable) {
    EXPECT_TRUE(is<const tavDBMDescription *(uint32_t)>(&db_getDb));
    EXPECT_TRUE(is<int32_t(const tavDBMDescription *, int32_t *)>(&dbs_me_db_control_init));
    EXPECT_TRUE(is<int32_t(uint32_t)>(&dbs_me_db_control_term));
    EXPECT_TRUE(is<const char *()>(&dbs_me_db_control_get_file_name));
    EXPECT_TRUE(is<int32_t()>(&dbs_me_db_control_init_table));
    EXPECT_TRUE(is<int32_t(const tavDBMDescription *, int32_t *)>(&dbs_me_db_control_init_table_entry));
    EXPECT_TRUE(is<int32_t(const tavDBMDescription *)>(&dbs_me_db_control_search_table_entry));
    EXPECT_TRUE(is<int32_t(uint32_t)>(&dbs_me_db_control_term_table_entry));
}

TEST(Signatures, OfTheSemaphoreWrappers) {
    EXPECT_TRUE(is<int32_t(tavDBMSemaphoreSet *, const char *)>(&misc_getSems));
    for (OnSet *const wrapper : {misc_waitMtx, misc_postMtx, misc_waitCount, misc_postCount, misc_waitEvent,
                                 misc_postEvent, misc_resetEvent, misc_freeSems})
        EXPECT_NE(wrapper, nullptr);
    EXPECT_TRUE(is<int32_t(const char *, const char *)>(&misc_pathCompare));
}

TEST(Signatures, OfTheDumps) {
    EXPECT_TRUE(is<Dump>(&dbs_me_db_debug));
    EXPECT_TRUE(is<Dump>(&dbs_me_db_control_debug_info));
    EXPECT_TRUE(is<Dump>(&dbs_me_db_session_debug_info));
    EXPECT_TRUE(is<Dump>(&dbs_me_db_misc_debug_info));
}

TEST(Signatures, OfThePlatformsSemaphores) {
    EXPECT_TRUE(is<Create>(&tavOSWCreateMutexSem));
    EXPECT_TRUE(is<Create>(&tavOSWCreateCountSem));
    EXPECT_TRUE(is<Create>(&tavOSWCreateEventSem));
    EXPECT_TRUE(is<Wait>(&tavOSWRequestMutexSem));
    EXPECT_TRUE(is<Wait>(&tavOSWWaitCountSem));
    EXPECT_TRUE(is<Wait>(&tavOSWWaitEventSem));
    EXPECT_TRUE(is<Post>(&tavOSWReleaseMutexSem));
    EXPECT_TRUE(is<Post>(&tavOSWPostCountSem));
    EXPECT_TRUE(is<Post>(&tavOSWPostEventSem));
}

TEST(Signatures, OfThePlatformsOtherServices) {
    EXPECT_TRUE(is<void *(uint32_t)>(&tavOSWSubAllocMem));
    EXPECT_TRUE((is<int32_t(int32_t, void *)>(&tavOSWOrgFreeMemPart)));
    EXPECT_TRUE((is<void(int32_t, const char *, ...)>(&dbs_me_debug_trace)));
    EXPECT_TRUE((is<int32_t(int32_t, int32_t, int32_t)>(&dbs_me_syserr_notify_system_error)));
    EXPECT_TRUE((is<int32_t(int32_t, int32_t, int32_t, ...)>(&dbs_me_syserr_notify_system_error_async)));
    EXPECT_TRUE(is<int32_t(const char *)>(&hook_init));
    EXPECT_TRUE(is<int32_t()>(&hook_term));
    EXPECT_TRUE((is<const tavDBMHook *(tavDBMSession *, uint32_t)>(&getHook)));
}

TEST(Layout, OfASessionIsFiveWords) {
    EXPECT_EQ(sizeof(tavDBMSession), 20U);
    EXPECT_EQ(offsetof(tavDBMSession, sessionId), 0U);
    EXPECT_EQ(offsetof(tavDBMSession, dbId), 4U);
    EXPECT_EQ(offsetof(tavDBMSession, errorCode), 8U);
    EXPECT_EQ(offsetof(tavDBMSession, errorDetail), 12U);
    EXPECT_EQ(offsetof(tavDBMSession, currentComponent), 16U);
}

TEST(Layout, OfADescriptionIsFourPathsAndFiveWords) {
    EXPECT_EQ(sizeof(tavDBMDescription), 16404U);
    EXPECT_EQ(offsetof(tavDBMDescription, sessionPath), 0U);
    EXPECT_EQ(offsetof(tavDBMDescription, lockPath), 4096U);
    EXPECT_EQ(offsetof(tavDBMDescription, mediaPath), 8192U);
    EXPECT_EQ(offsetof(tavDBMDescription, hookPath), 12288U);
    EXPECT_EQ(offsetof(tavDBMDescription, componentMedia), 16384U);
    EXPECT_EQ(offsetof(tavDBMDescription, valueMedia), 16388U);
    EXPECT_EQ(offsetof(tavDBMDescription, constraintMedia), 16392U);
    EXPECT_EQ(offsetof(tavDBMDescription, stringMedia), 16396U);
    EXPECT_EQ(offsetof(tavDBMDescription, fifthWord), 16400U);
}

TEST(Layout, OfTheTablesIsTheirFilesSize) {
    EXPECT_EQ(sizeof(tavDBMControlEntry), 16416U);
    EXPECT_EQ(sizeof(tavDBMControlTable), 541740U);
    EXPECT_EQ(sizeof(tavDBMSessionSlot), 16U);
    EXPECT_EQ(sizeof(tavDBMSessionTable), 16412U);
    EXPECT_EQ(sizeof(tavDBMLockEntry), 24U);
    EXPECT_EQ(sizeof(tavDBMLockTable), 24624U);
}

TEST(Layout, OfAHookIsFivePointers) {
    EXPECT_EQ(sizeof(tavDBMHook), 5 * sizeof(void *));
    EXPECT_EQ(offsetof(tavDBMHook, preWrite), sizeof(void *));
    EXPECT_EQ(offsetof(tavDBMHook, postRead), 4 * sizeof(void *));
}

}  // namespace
