#include "roundtrip.h"

#include "sync_client.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* 2024-05-01 10:00 UTC, as property-list seconds from 2001. */
#define HOST_TIME 736250400

/* The records one class sends, and what their links must look like on
 * the device afterwards. `keys[0]` is the record that is removed. */
struct sample {
    const char* data_class;
    const char* keys[4];
    int (*send)(mobilesync_client_t client, const struct reading* before, plist_t remap);
    const char* (*links_fault)(plist_t changes, plist_t remap);
};

static const char* device_id(plist_t remap, const char* key) { return string_at(remap, key); }

/* Sends one batch of {key: record}, entity names taken from the records,
 * and adds the device's answer to `remap`. */
static int send_batch(mobilesync_client_t client, plist_t batch, int last, plist_t remap) {
    char* names[4];
    int n = 0;
    plist_dict_iter it = NULL;
    plist_dict_new_iter(batch, &it);
    for (;;) {
        char* key = NULL;
        plist_t record = NULL;
        plist_dict_next_item(batch, it, &key, &record);
        if (!key) break;
        free(key);
        if (n < 4) names[n++] = (char*)string_at(record, ENTITY_KEY);
    }
    free(it);
    plist_t actions = mobilesync_actions_new();
    mobilesync_actions_add(actions, "SyncDeviceLinkEntityNamesKey", names, n,
                           "SyncDeviceLinkAllRecordsOfPulledEntityTypeSentKey", 1, NULL);
    mobilesync_error_t e = mobilesync_send_changes(client, batch, last, actions);
    plist_free(batch);
    mobilesync_actions_free(actions);
    if (e != MOBILESYNC_E_SUCCESS) return failed("sending a batch", e);
    plist_t mapping = NULL;
    if ((e = mobilesync_remap_identifiers(client, &mapping)) != MOBILESYNC_E_SUCCESS) return failed("remap", e);
    if (!mapping) return fail("a batch of new records answered with no ids");
    plist_dict_merge(&remap, mapping);
    plist_free(mapping);
    return 0;
}

static plist_t batch_of(const char* key, plist_t record) {
    plist_t batch = plist_new_dict();
    plist_dict_set_item(batch, key, record);
    return batch;
}

static void set_string(plist_t record, const char* key, const char* value) {
    plist_dict_set_item(record, key, plist_new_string(value));
}

/* Whether the record the device gave `key` links by `link` to exactly the
 * device's record for `target`, or to `target` itself when it is no host key. */
static int links_to(plist_t changes, plist_t remap, const char* key, const char* link, const char* target) {
    const char* id = device_id(remap, key);
    plist_t record = id ? plist_dict_get_item(changes, id) : NULL;
    plist_t links = record ? plist_dict_get_item(record, link) : NULL;
    const char* expected = device_id(remap, target) ? device_id(remap, target) : target;
    return links && plist_array_get_size(links) == 1 && array_string(links, 0) &&
           strcmp(array_string(links, 0), expected) == 0;
}

/* A calendar; its event linked by the host's calendar id; an alarm on the
 * event's device id and a recurrence on its host id, in one batch. */
static int send_calendar(mobilesync_client_t client, const struct reading* before, plist_t remap) {
    (void)before;
    plist_t calendar = new_record("com.apple.calendars.Calendar");
    set_string(calendar, "title", "Host calendar & <co>");
    plist_dict_set_item(calendar, "read only", plist_new_uint(0));
    plist_t color = plist_new_array();
    for (int i = 0; i < 4; ++i) plist_array_append_item(color, plist_new_uint(i == 3 ? 255 : 40 * i));
    plist_dict_set_item(calendar, "colorComponents", color);
    if (send_batch(client, batch_of("HOST-CALENDAR", calendar), 0, remap)) return 1;

    plist_t event = new_record("com.apple.calendars.Event");
    set_string(event, "summary", "Host event");
    plist_dict_set_item(event, "start date", plist_new_date(HOST_TIME, 0));
    plist_dict_set_item(event, "end date", plist_new_date(HOST_TIME + 3600, 0));
    set_string(event, "start date.timezone", "Europe/Berlin");
    plist_dict_set_item(event, "calendar", one_link("HOST-CALENDAR"));
    if (send_batch(client, batch_of("HOST-EVENT", event), 0, remap)) return 1;
    const char* event_id = device_id(remap, "HOST-EVENT");
    if (!event_id) return fail("no device id for an event linked by the host's calendar id");

    plist_t alarm = new_record("com.apple.calendars.DisplayAlarm");
    set_string(alarm, "description", "Host alarm");
    plist_dict_set_item(alarm, "triggerduration", plist_new_uint((uint64_t)-600));
    plist_dict_set_item(alarm, "owner", one_link(event_id));
    plist_t recurrence = new_record("com.apple.calendars.Recurrence");
    set_string(recurrence, "frequency", "monthly");
    plist_dict_set_item(recurrence, "interval", plist_new_uint(2));
    plist_dict_set_item(recurrence, "owner", one_link("HOST-EVENT"));
    plist_t batch = batch_of("HOST-ALARM", alarm);
    plist_dict_set_item(batch, "HOST-RECURRENCE", recurrence);
    return send_batch(client, batch, 1, remap);
}

static const char* calendar_links(plist_t changes, plist_t remap) {
    if (!links_to(changes, remap, "HOST-EVENT", "calendar", "HOST-CALENDAR")) return "the event's calendar";
    if (!links_to(changes, remap, "HOST-ALARM", "owner", "HOST-EVENT")) return "the alarm's event";
    if (!links_to(changes, remap, "HOST-RECURRENCE", "owner", "HOST-EVENT")) return "the recurrence's event";
    return NULL;
}

/* The first folder the device listed (to be freed), or NULL. */
static char* first_folder(const struct reading* before) {
    char* found = NULL;
    plist_dict_iter it = NULL;
    plist_dict_new_iter(before->seen, &it);
    while (!found) {
        char* id = NULL;
        plist_t record = NULL;
        plist_dict_next_item(before->seen, it, &id, &record);
        if (!id) break;
        const char* entity = string_at(record, ENTITY_KEY);
        if (entity && strcmp(entity, "com.apple.bookmarks.Folder") == 0)
            found = id;
        else
            free(id);
    }
    free(it);
    return found;
}

/* A folder inside the device's first one (at the top on an empty device),
 * and a bookmark in it linked by the host's folder id. */
static int send_bookmark(mobilesync_client_t client, const struct reading* before, plist_t remap) {
    char* parent = first_folder(before);
    plist_t folder = new_record("com.apple.bookmarks.Folder");
    set_string(folder, "name", "Host folder");
    plist_dict_set_item(folder, "position", plist_new_uint(9));
    if (parent) plist_dict_set_item(folder, "parent", one_link(parent));
    plist_dict_set_item(remap, "DEVICE-FOLDER", plist_new_string(parent ? parent : ""));
    free(parent);
    if (send_batch(client, batch_of("HOST-FOLDER", folder), 0, remap)) return 1;

    plist_t bookmark = new_record("com.apple.bookmarks.Bookmark");
    set_string(bookmark, "name", "Host <bookmark> & co");
    set_string(bookmark, "url", "https://host.example.com/?a=1&b=2");
    plist_dict_set_item(bookmark, "position", plist_new_uint(0));
    plist_dict_set_item(bookmark, "parent", one_link("HOST-FOLDER"));
    return send_batch(client, batch_of("HOST-BOOKMARK", bookmark), 1, remap);
}

static const char* bookmark_links(plist_t changes, plist_t remap) {
    if (!links_to(changes, remap, "HOST-BOOKMARK", "parent", "HOST-FOLDER")) return "the bookmark's folder";
    const char* parent = device_id(remap, "DEVICE-FOLDER");
    if (*parent && !links_to(changes, remap, "HOST-FOLDER", "parent", parent)) return "the folder's parent";
    return NULL;
}

/* A note as the worker writes one: no author, both dates. */
static int send_note(mobilesync_client_t client, const struct reading* before, plist_t remap) {
    (void)before;
    plist_t note = new_record("com.apple.notes.Note");
    set_string(note, "subject", "Host note & <friends>");
    set_string(note, "content", "Written by the host: \"hello\"");
    set_string(note, "contentType", "text/plain");
    plist_dict_set_item(note, "dateCreated", plist_new_date(HOST_TIME, 0));
    plist_dict_set_item(note, "dateModified", plist_new_date(HOST_TIME, 0));
    return send_batch(client, batch_of("HOST-NOTE", note), 1, remap);
}

static const char* no_links(plist_t changes, plist_t remap) {
    (void)changes;
    (void)remap;
    return NULL;
}

static const struct sample samples[] = {
    {"com.apple.Calendars", {"HOST-CALENDAR", "HOST-EVENT", "HOST-ALARM", "HOST-RECURRENCE"}, send_calendar,
     calendar_links},
    {"com.apple.Bookmarks", {"HOST-FOLDER", "HOST-BOOKMARK"}, send_bookmark, bookmark_links},
    {"com.apple.Notes", {"HOST-NOTE"}, send_note, no_links},
};

static unsigned key_count(const struct sample* s) {
    unsigned n = 0;
    while (n < 4 && s->keys[n]) ++n;
    return n;
}

/* Opens a session; `device_anchor` NULL for a slow one. */
static mobilesync_client_t open_session(const char* data_class, const char* device_anchor,
                                        mobilesync_sync_type_t expected) {
    mobilesync_client_t client = connect_sync();
    if (!client) {
        fail("mobilesync did not start");
        return NULL;
    }
    mobilesync_sync_type_t type = 0;
    char* error = NULL;
    mobilesync_error_t e = start_session(client, data_class, device_anchor, host_version(data_class), &type, &error);
    if (e != MOBILESYNC_E_SUCCESS || type != expected) {
        failed(error ? error : type != expected ? "sync type" : "start", e);
        mobilesync_client_free(client);
        return NULL;
    }
    return client;
}

/* A slow session that reads every record into `r`, and is left open for
 * the host's changes. */
static mobilesync_client_t read_everything(const char* data_class, struct reading* r) {
    mobilesync_client_t client = open_session(data_class, NULL, MOBILESYNC_SYNC_TYPE_SLOW);
    if (!client) return NULL;
    reading_init(r, 1);
    mobilesync_error_t e = mobilesync_get_all_records_from_device(client);
    if (e != MOBILESYNC_E_SUCCESS || receive_pages(client, r) ||
        (e = mobilesync_ready_to_send_changes_from_computer(client)) != MOBILESYNC_E_SUCCESS) {
        failed("full read", e);
        mobilesync_client_free(client);
        return NULL;
    }
    return client;
}

/* The worker's removal: the record's id and EMPTY, nothing more. */
static int remove_record(mobilesync_client_t client, const char* data_class, const char* id) {
    plist_t removal = plist_new_array();
    plist_array_append_item(removal, plist_new_string("SDMessageProcessChanges"));
    plist_array_append_item(removal, plist_new_string(data_class));
    plist_t records = plist_new_dict();
    plist_dict_set_item(records, id, plist_new_string(EMPTY));
    plist_array_append_item(removal, records);
    mobilesync_error_t e = mobilesync_send(client, removal);
    plist_free(removal);
    plist_t mapping = NULL;
    if (e != MOBILESYNC_E_SUCCESS || (e = mobilesync_remap_identifiers(client, &mapping)) != MOBILESYNC_E_SUCCESS)
        return failed("removal", e);
    if (mapping) {
        plist_free(mapping);
        return fail("a removal answered with new ids");
    }
    return 0;
}

/* The fast session: the added records as changes, then the removal. */
static int changes_then_removal(const struct sample* s, const char* anchor, plist_t remap, unsigned* changed) {
    mobilesync_client_t client = open_session(s->data_class, anchor, MOBILESYNC_SYNC_TYPE_FAST);
    if (!client) return 1;
    mobilesync_error_t e = mobilesync_get_changes_from_device(client);
    if (e != MOBILESYNC_E_SUCCESS) return failed("get changes", e);
    struct reading r;
    reading_init(&r, 0);
    if (receive_pages(client, &r)) return 1;
    if (r.pages != 1) return failed("pages of changes", (int)r.pages);
    *changed = r.records;
    for (unsigned i = 0; i < key_count(s); ++i)
        if (!plist_dict_get_item(r.seen, device_id(remap, s->keys[i]))) return fail("an added record not among the changes");
    const char* links = s->links_fault(r.seen, remap);
    if (links) return fail(links);
    reading_free(&r);
    if ((e = mobilesync_ready_to_send_changes_from_computer(client)) != MOBILESYNC_E_SUCCESS)
        return failed("ready after changes", e);
    if (remove_record(client, s->data_class, device_id(remap, s->keys[0]))) return 1;
    if ((e = mobilesync_finish(client)) != MOBILESYNC_E_SUCCESS) return failed("finish", e);
    mobilesync_client_free(client);
    return 0;
}

int roundtrip(const char* data_class) {
    const struct sample* s = NULL;
    for (size_t i = 0; i < sizeof samples / sizeof *samples; ++i)
        if (strcmp(samples[i].data_class, data_class) == 0) s = &samples[i];
    if (!s) return fail("no records to send for that class");

    mobilesync_client_t client = connect_sync();
    char* anchor = client ? raw_session(client, data_class) : NULL;
    if (!anchor) return fail("no anchor from a finished session");
    mobilesync_client_free(client);

    struct reading before;
    if (!(client = read_everything(data_class, &before))) return 1;
    plist_t remap = plist_new_dict();
    if (s->send(client, &before, remap)) return 1;
    for (unsigned i = 0; i < key_count(s); ++i) {
        const char* id = device_id(remap, s->keys[i]);
        if (!id) return fail("a record sent got no device id");
        printf("remap %s %s\n", s->keys[i], id);
    }
    /* What was written stays; the anchors stay where the first session left them. */
    mobilesync_cancel(client, "checked the remap");
    mobilesync_client_free(client);

    unsigned changed = 0;
    if (changes_then_removal(s, anchor, remap, &changed)) return 1;
    printf("changes %u pages 1\n", changed);

    struct reading after;
    if (!(client = read_everything(data_class, &after))) return 1;
    for (unsigned i = 0; i < key_count(s); ++i)
        if (plist_dict_get_item(after.seen, device_id(remap, s->keys[i]))) return fail("a removed record is still there");
    mobilesync_error_t e = mobilesync_finish(client);
    if (e != MOBILESYNC_E_SUCCESS) return failed("finish", e);
    mobilesync_client_free(client);
    printf("records %u then %u\n", before.records, after.records);
    reading_free(&before);
    reading_free(&after);
    plist_free(remap);
    free(anchor);
    return 0;
}
