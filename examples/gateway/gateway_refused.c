/* SPDX-License-Identifier: Apache-2.0 */
/*
 * gateway-refused DIRECTORY
 *
 * Tries what the example database must refuse: values outside their range,
 * beside their step, not in their enumeration, of the wrong width, a value that
 * a hook has something against, and paths that lead nowhere. Prints what each
 * one gives, with the name and the sentences of the code. Exit code 1 when
 * something was not refused, or changed a value nevertheless.
 */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "directory.h"
#include "error_text.h"
#include "tavdb.h"

struct attempt {
    const char *path;
    int32_t type; /* which call writes it, enum tavDBMType */
    double value;
};

static const struct attempt attempts[] = {
    {"/network/lan/mtuBytes", TAVDB_TYPE_U16, 400},
    {"/network/lan/mtuBytes", TAVDB_TYPE_U16, 12000},
    {"/network/lan/mtuBytes", TAVDB_TYPE_U16, 1450}, /* 576, 580, 584, ... */
    {"/network/lan/mtuBytes", TAVDB_TYPE_U32, 1400}, /* a good number, with the wrong call */
    {"/services/fileShare/quotaBytes", TAVDB_TYPE_U64, 1000000},
    {"/wireless/radio0/transmitPowerDbm", TAVDB_TYPE_S8, -11},
    {"/wireless/radio1/antennaGainDbi", TAVDB_TYPE_F32, 12.5},
    {"/system/location/latitudeDeg", TAVDB_TYPE_F64, -123.25},
    {"/wireless/radio1/channel", TAVDB_TYPE_U8, 37},
    {"/wireless/radio0/channel", TAVDB_TYPE_U8, 12}, /* in its range; the hook knows better */
    {"/network/lan/", TAVDB_TYPE_U8, 1},
    {"/network/lan/mtu", TAVDB_TYPE_U16, 1400},
    {"lan/mtuBytes", TAVDB_TYPE_U16, 1400}, /* relative to the root, where a session starts */
};

enum { valueBytes = 16 }; /* more than any value above has */

static int32_t setValue(tavDBMSession *session, uint32_t component, const struct attempt *attempt) {
    switch (attempt->type) {
        case TAVDB_TYPE_S8:
            return tavDBMSetSint8(session, component, (int8_t)attempt->value);
        case TAVDB_TYPE_U8:
            return tavDBMSetUint8(session, component, (uint8_t)attempt->value);
        case TAVDB_TYPE_U16:
            return tavDBMSetUint16(session, component, (uint16_t)attempt->value);
        case TAVDB_TYPE_U32:
            return tavDBMSetUint32(session, component, (uint32_t)attempt->value);
        case TAVDB_TYPE_U64:
            return tavDBMSetUint64(session, component, (uint64_t)attempt->value);
        case TAVDB_TYPE_F32:
            return tavDBMSetFloat32(session, component, (float)attempt->value);
        default:
            return tavDBMSetFloat64(session, component, attempt->value);
    }
}

/* What stands there now, as bytes; zeros where there is no leaf. */
static void readValue(tavDBMSession *session, uint32_t component, unsigned char value[valueBytes]) {
    int32_t lengthBytes = valueBytes;
    memset(value, 0, valueBytes);
    tavDBMGetGeneric(session, component, value, &lengthBytes);
}

/* The code is the call's result; the detail, and everything about a search, is left in the session. */
static uint32_t attemptCode(tavDBMSession *session, const struct attempt *attempt, int *isChanged) {
    unsigned char before[valueBytes];
    unsigned char after[valueBytes];
    *isChanged = 0;
    session->errorCode = 0; /* an old code would mislead the search */
    session->errorDetail = 0;
    const uint32_t component = tavDBMSearchByName(session, attempt->path);
    if (component == 0)
        return session->errorCode;
    readValue(session, component, before);
    const int32_t code = setValue(session, component, attempt);
    const uint32_t detail = session->errorDetail;
    readValue(session, component, after);
    *isChanged = memcmp(before, after, valueBytes) != 0;
    session->errorDetail = detail;
    return (uint32_t)code;
}

static int report(tavDBMSession *session, const struct attempt *attempt) {
    int isChanged = 0;
    const uint32_t code = attemptCode(session, attempt, &isChanged);
    printf("%s = %.10g\n", attempt->path, attempt->value);
    if (code == 0 || isChanged) {
        printf("    NOT REFUSED: code %u, the value is %s\n", (unsigned int)code, isChanged ? "changed" : "as before");
        return 1;
    }
    const struct errorText *const error = findErrorText(code);
    printf("    %u %s", (unsigned int)code, error->name);
    if (code == TAVDB_ERR_PRE_WRITE)
        printf(" (detail %u)", (unsigned int)session->errorDetail);
    printf(": %s; %s\n", error->sentence, error->action);
    return 0;
}

static int tryAll(tavDBMSession *session) {
    const size_t count = sizeof attempts / sizeof attempts[0];
    int failed = 0;
    for (size_t i = 0; i < count; i++)
        failed |= report(session, &attempts[i]);
    if (!failed)
        printf("all %zu were refused, and no value changed\n", count);
    return failed;
}

static int tell(const char *what, uint32_t code) {
    fprintf(stderr, "refused: %s: %s (code %u)\n", what, findErrorText(code)->sentence, (unsigned int)code);
    return 1;
}

/* Attach, open a session, work, and both back in reverse order. */
static int run(const tavDBMDescription *description) {
    int32_t error = 0;
    const int32_t database = tavDBMInit(description, &error);
    if (database < 0)
        return tell("attaching", (uint32_t)error);
    tavDBMSession session;
    int failed = 1;
    const int32_t code = tavDBMInitSession(&session, (uint32_t)database);
    if (code != 0) {
        tell("opening a session", (uint32_t)code);
    } else {
        failed = tryAll(&session);
        tavDBMTermSession(&session);
    }
    tavDBMTerm((uint32_t)database);
    return failed;
}

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: gateway-refused DIRECTORY\n");
        return 2;
    }
    setvbuf(stdout, NULL, _IOLBF, 0); /* lines of several programs keep their order */
    tavDBMDescription description;
    const int error = describeDirectory(argv[1], &description);
    if (error != 0) {
        fprintf(stderr, "refused: %s: %s\n", argv[1], strerror(error));
        return 1;
    }
    const int failed = run(&description);
    return failed != 0 || ferror(stdout) != 0;
}
