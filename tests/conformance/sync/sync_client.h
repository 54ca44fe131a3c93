/* libimobiledevice's mobilesync client as mobilesync_check uses it: one
 * connection per session, sessions started with a host anchor of the
 * checker's own, and the pages of a read taken apart and checked. */
#pragma once

#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/mobilesync.h>
#include <plist/plist.h>

#include <stdint.h>

#define EMPTY "___EmptyParameterString___"
#define CONTACTS "com.apple.Contacts"
#define ENTITY_KEY "com.apple.syncservices.RecordEntityName"

extern idevice_t device;

int fail(const char* what);
int failed(const char* what, int code);

mobilesync_client_t connect_sync(void);

/* The version a host names for the class, and the one the device answers. */
uint64_t host_version(const char* data_class);

/* mobilesync_start with a host anchor of its own; the device's refusal,
 * if any, in *error. The device must answer with the class's version. */
mobilesync_error_t start_session(mobilesync_client_t client, const char* data_class, const char* device_anchor,
                                 uint64_t version, mobilesync_sync_type_t* type, char** error);

/* A slow session started with the raw messages, to see the anchor the
 * device hands out; finished at once. Answers that anchor, or NULL. */
char* raw_session(mobilesync_client_t client, const char* data_class);

const char* string_at(plist_t node, const char* key);
const char* array_string(plist_t array, uint32_t index);

#define MAX_ENTITIES 16

struct reading {
    unsigned records, pages, parents, children;
    plist_t seen; /* every record received, by id */
    int list;     /* print "ID|ENTITY|NAME" lines */
    int full;     /* a full read: links name only records sent before */
    unsigned kinds;
    char* entity[MAX_ENTITIES]; /* in the order first met */
    unsigned count[MAX_ENTITIES];
};

void reading_init(struct reading* r, int full);
void reading_free(struct reading* r);

/* Receives pages until the last, acknowledging each, and checks them: no
 * parent after a child, every entity named in the page's actions, each
 * record in the shape of its entity and, in a full read, linked only to
 * records already sent. */
int receive_pages(mobilesync_client_t client, struct reading* r);

plist_t new_record(const char* entity);
plist_t one_link(const char* id);

/* Sends one batch of {key: record} and answers the id the device gave `key`. */
char* send_one(mobilesync_client_t client, const char* key, plist_t record, const char* entity, int last);
