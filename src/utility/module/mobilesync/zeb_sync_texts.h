// The fixed message texts of a mobilesync session, as XML property lists.
// Each is re-encoded as a binary property list before it goes out, so the
// three whitespace forms below (one line; an element per CRLF line; CRLF
// lines with each array element indented) give the same bytes on the wire.
#pragma once

#include "zeb_plist_templates.h"

#define ZEB_SYNC_S(text) "<string>" text "</string>"

#define ZEB_SYNC_HEAD_LINE ZEB_PLIST_PLAIN "<array>"
#define ZEB_SYNC_SEP_LINE ""
#define ZEB_SYNC_END_LINE "</array>" ZEB_PLIST_END

#define ZEB_SYNC_HEAD_CRLF                                                                    \
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST " \
    "1.0//EN\" " ZEB_PLIST_DTD ">\r\n<plist version=\"1.0\">\r\n<array>"
#define ZEB_SYNC_SEP_CRLF "\r\n"
#define ZEB_SYNC_END_CRLF "\r\n</array>\r\n</plist>\r\n"

#define ZEB_SYNC_HEAD_TAB ZEB_SYNC_HEAD_CRLF
#define ZEB_SYNC_SEP_TAB "\r\n\t"
#define ZEB_SYNC_END_TAB ZEB_SYNC_END_CRLF

#define ZEB_SYNC_HEAD_BLANK ZEB_SYNC_HEAD_CRLF
#define ZEB_SYNC_SEP_BLANK "\r\n "
#define ZEB_SYNC_END_BLANK ZEB_SYNC_END_CRLF

// A two-string message in one of the forms LINE, CRLF, TAB.
#define ZEB_SYNC_MESSAGE(form, name, second) \
    ZEB_SYNC_HEAD_##form ZEB_SYNC_SEP_##form ZEB_SYNC_S(name) ZEB_SYNC_SEP_##form ZEB_SYNC_S(second) ZEB_SYNC_END_##form

// The start message: its fourth element is the anchor time's format with
// the eight values of the session's clock (see syncAnchorTime).
#define ZEB_SYNC_START(form, dataClass, anchor, version)                                                     \
    ZEB_SYNC_HEAD_##form ZEB_SYNC_SEP_##form ZEB_SYNC_S("SDMessageSyncDataClassWithDevice") ZEB_SYNC_SEP_##form \
        ZEB_SYNC_S(dataClass) ZEB_SYNC_SEP_##form ZEB_SYNC_S(anchor) ZEB_SYNC_SEP_##form                     \
        ZEB_SYNC_S("%04u-%02u-%02u %02u:%02u:%02u +%02u%02u") ZEB_SYNC_SEP_##form "<integer>" version        \
        "</integer>" ZEB_SYNC_SEP_##form ZEB_SYNC_S("___EmptyParameterString___") ZEB_SYNC_END_##form

// The version answer the device waits for after its own version message.
#define ZEB_SYNC_VERSION_ANSWER(form)                                                                       \
    ZEB_SYNC_HEAD_##form ZEB_SYNC_SEP_##form ZEB_SYNC_S("DLMessageVersionExchange") ZEB_SYNC_SEP_##form      \
        ZEB_SYNC_S("DLVersionsOk") ZEB_SYNC_SEP_##form "<integer>100</integer>" ZEB_SYNC_END_##form

// Removal of one record: "%s" is the record id (escaped for XML). The
// empty-parameter string in the place of a record deletes it.
#define ZEB_SYNC_REMOVE(dataClass)                                                                           \
    ZEB_SYNC_HEAD_LINE ZEB_SYNC_S("SDMessageProcessChanges") ZEB_SYNC_S(dataClass)                           \
        "<dict><key>%s</key><string>___EmptyParameterString___</string></dict>" ZEB_SYNC_END_LINE

// Every text one command of a data class sends, in the forms that command
// uses. A null member is a message the command never sends.
struct SyncTexts {
    const char* dataClass;
    const char* versionAnswer;
    const char* start;
    const char* getAll;
    const char* getChanges;
    const char* acknowledge;
    const char* ping;
    const char* finish;
};

// One command's text set: `form` for every message, `startForm` for the
// start message, `pingForm` and `pingText` for the ping.
#define ZEB_SYNC_TEXTS(form, startForm, pingForm, dataClass, anchor, version, pingText)                 \
    SyncTexts {                                                                                          \
        dataClass, ZEB_SYNC_VERSION_ANSWER(form), ZEB_SYNC_START(startForm, dataClass, anchor, version), \
            ZEB_SYNC_MESSAGE(form, "SDMessageGetAllRecordsFromDevice", dataClass),                       \
            ZEB_SYNC_MESSAGE(form, "SDMessageGetChangesFromDevice", dataClass),                          \
            ZEB_SYNC_MESSAGE(form, "SDMessageAcknowledgeChangesFromDevice", dataClass),                  \
            ZEB_SYNC_MESSAGE(pingForm, "DLMessagePing", pingText),                                       \
            ZEB_SYNC_MESSAGE(form, "SDMessageFinishSessionOnDevice", dataClass)                          \
    }
