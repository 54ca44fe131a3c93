#include "sync_client.h"

#include "record_shapes.h"

#include <libimobiledevice/lockdown.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

idevice_t device;

int fail(const char* what) {
    fprintf(stderr, "FAIL: %s\n", what);
    return 1;
}

int failed(const char* what, int code) {
    fprintf(stderr, "FAIL: %s (%d)\n", what, code);
    return 1;
}

mobilesync_client_t connect_sync(void) {
    lockdownd_client_t lockdown = NULL;
    if (lockdownd_client_new_with_handshake(device, &lockdown, "mobilesync_check") != LOCKDOWN_E_SUCCESS) return NULL;
    lockdownd_service_descriptor_t service = NULL;
    mobilesync_client_t client = NULL;
    if (lockdownd_start_service(lockdown, "com.apple.mobilesync", &service) == LOCKDOWN_E_SUCCESS &&
        mobilesync_client_new(device, service, &client) != MOBILESYNC_E_SUCCESS)
        client = NULL;
    lockdownd_service_descriptor_free(service);
    lockdownd_client_free(lockdown);
    return client;
}

uint64_t host_version(const char* data_class) {
    if (strcmp(data_class, CONTACTS) == 0) return 106;
    if (strcmp(data_class, "com.apple.Calendars") == 0) return 110;
    return 102;
}

mobilesync_error_t start_session(mobilesync_client_t client, const char* data_class, const char* device_anchor,
                                 uint64_t version, mobilesync_sync_type_t* type, char** error) {
    mobilesync_anchors_t anchors = mobilesync_anchors_new(device_anchor, "2024-05-01 10-00-00 +0000");
    uint64_t device_version = 0;
    mobilesync_error_t e = mobilesync_start(client, data_class, anchors, version, type, &device_version, error);
    mobilesync_anchors_free(anchors);
    if (e == MOBILESYNC_E_SUCCESS && device_version != host_version(data_class)) e = MOBILESYNC_E_UNKNOWN_ERROR;
    return e;
}

const char* string_at(plist_t node, const char* key) {
    plist_t item = key ? plist_dict_get_item(node, key) : node;
    if (!item || plist_get_node_type(item) != PLIST_STRING) return NULL;
    return plist_get_string_ptr(item, NULL);
}

const char* array_string(plist_t array, uint32_t index) {
    if (!array || plist_get_node_type(array) != PLIST_ARRAY || index >= plist_array_get_size(array)) return NULL;
    return string_at(plist_array_get_item(array, index), NULL);
}

static plist_t message(const char* name, const char* data_class) {
    plist_t m = plist_new_array();
    plist_array_append_item(m, plist_new_string(name));
    plist_array_append_item(m, plist_new_string(data_class));
    return m;
}

char* raw_session(mobilesync_client_t client, const char* data_class) {
    plist_t start = message("SDMessageSyncDataClassWithDevice", data_class);
    plist_array_append_item(start, plist_new_string("---"));
    plist_array_append_item(start, plist_new_string("2024-05-01 14-00-00 +0000"));
    plist_array_append_item(start, plist_new_uint(host_version(data_class)));
    plist_array_append_item(start, plist_new_string(EMPTY));
    plist_t reply = NULL;
    mobilesync_send(client, start);
    plist_free(start);
    if (mobilesync_receive(client, &reply) != MOBILESYNC_E_SUCCESS) return NULL;
    char* anchor = NULL;
    const char* kind = array_string(reply, 0);
    const char* type = array_string(reply, 4);
    if (kind && strcmp(kind, "SDMessageSyncDataClassWithComputer") == 0 && type &&
        strcmp(type, "SDSyncTypeSlow") == 0 && array_string(reply, 3))
        anchor = strdup(array_string(reply, 3));
    plist_free(reply);
    if (!anchor) return NULL;
    plist_t finish = message("SDMessageFinishSessionOnDevice", data_class);
    mobilesync_send(client, finish);
    plist_free(finish);
    reply = NULL;
    const int ok = mobilesync_receive(client, &reply) == MOBILESYNC_E_SUCCESS && array_string(reply, 0) &&
                   strcmp(array_string(reply, 0), "SDMessageDeviceFinishedSession") == 0;
    plist_free(reply);
    if (!ok) {
        free(anchor);
        return NULL;
    }
    return anchor;
}

static int is_parent(const char* entity) {
    return strcmp(entity, "com.apple.contacts.Contact") == 0 || strcmp(entity, "com.apple.contacts.Group") == 0 ||
           strcmp(entity, "com.apple.calendars.Calendar") == 0 || strcmp(entity, "com.apple.bookmarks.Folder") == 0 ||
           strcmp(entity, "com.apple.notes.Note") == 0;
}

/* Whether the page's SyncDeviceLinkEntityNamesKey lists `entity`. */
static int names_entity(plist_t actions, const char* entity) {
    plist_t names = actions ? plist_dict_get_item(actions, "SyncDeviceLinkEntityNamesKey") : NULL;
    for (uint32_t i = 0; names && i < plist_array_get_size(names); ++i)
        if (array_string(names, i) && strcmp(array_string(names, i), entity) == 0) return 1;
    return 0;
}

/* Links that name the record this one belongs to or sits in; group
 * members are left out, contacts may follow their groups. */
static const char* const owner_links[] = {"contact", "calendar", "owner", "parent"};

static int links_seen(plist_t record, plist_t seen) {
    for (size_t k = 0; k < sizeof owner_links / sizeof *owner_links; ++k) {
        plist_t links = plist_dict_get_item(record, owner_links[k]);
        for (uint32_t i = 0; links && plist_get_node_type(links) == PLIST_ARRAY && i < plist_array_get_size(links);
             ++i) {
            const char* id = array_string(links, i);
            if (!id || !plist_dict_get_item(seen, id)) return 0;
        }
    }
    return 1;
}

void reading_init(struct reading* r, int full) {
    memset(r, 0, sizeof *r);
    r->seen = plist_new_dict();
    r->full = full;
}

void reading_free(struct reading* r) {
    plist_free(r->seen);
    for (unsigned i = 0; i < r->kinds; ++i) free(r->entity[i]);
}

static void count_entity(struct reading* r, const char* entity) {
    unsigned i = 0;
    while (i < r->kinds && strcmp(r->entity[i], entity) != 0) ++i;
    if (i == MAX_ENTITIES) return;
    if (i == r->kinds) r->entity[r->kinds++] = strdup(entity);
    r->count[i]++;
}

static void print_listed(const char* id, const char* entity, plist_t record) {
    static const char* const name_keys[] = {"first name", "company name", "name", "value", "title", "summary",
                                            "subject"};
    const char* name = NULL;
    for (size_t k = 0; !name && k < sizeof name_keys / sizeof *name_keys; ++k) name = string_at(record, name_keys[k]);
    const char* last_name = string_at(record, "last name");
    printf("%s|%s|%s%s%s\n", id, entity, name ? name : "", last_name ? " " : "", last_name ? last_name : "");
}

int receive_pages(mobilesync_client_t client, struct reading* r) {
    uint8_t last = 0;
    while (!last) {
        plist_t entities = NULL, actions = NULL;
        mobilesync_error_t e = mobilesync_receive_changes(client, &entities, &last, &actions);
        if (e != MOBILESYNC_E_SUCCESS) return failed("receiving a page", e);
        if (!entities || plist_get_node_type(entities) != PLIST_DICT) return fail("a page without a records dictionary");
        r->pages++;
        plist_dict_iter it = NULL;
        plist_dict_new_iter(entities, &it);
        for (;;) {
            char* id = NULL;
            plist_t record = NULL;
            plist_dict_next_item(entities, it, &id, &record);
            if (!id) break;
            const char* entity = string_at(record, ENTITY_KEY);
            if (!entity) return fail("a record without an entity name");
            if (!names_entity(actions, entity)) return fail("the page's entity names leave out one of its entities");
            const char* shape = record_shape_fault(entity, record);
            if (shape) return fail(shape);
            if (is_parent(entity)) {
                if (r->children) return fail("a parent record after a child record");
                r->parents++;
            } else {
                r->children++;
            }
            if (r->full && !links_seen(record, r->seen)) return fail("a record before the one it belongs to");
            if (r->list) print_listed(id, entity, record);
            count_entity(r, entity);
            plist_dict_set_item(r->seen, id, plist_copy(record));
            r->records++;
            free(id);
        }
        free(it);
        plist_free(entities);
        plist_free(actions);
        if ((e = mobilesync_acknowledge_changes_from_device(client)) != MOBILESYNC_E_SUCCESS)
            return failed("acknowledging a page", e);
    }
    return 0;
}

plist_t new_record(const char* entity) {
    plist_t record = plist_new_dict();
    plist_dict_set_item(record, ENTITY_KEY, plist_new_string(entity));
    return record;
}

plist_t one_link(const char* id) {
    plist_t links = plist_new_array();
    plist_array_append_item(links, plist_new_string(id));
    return links;
}

char* send_one(mobilesync_client_t client, const char* key, plist_t record, const char* entity, int last) {
    plist_t batch = plist_new_dict();
    plist_dict_set_item(batch, key, record);
    plist_t actions = NULL;
    if (!last) {
        char* names[] = {(char*)entity};
        actions = mobilesync_actions_new();
        mobilesync_actions_add(actions, "SyncDeviceLinkEntityNamesKey", names, 1,
                               "SyncDeviceLinkAllRecordsOfPulledEntityTypeSentKey", 1, NULL);
    }
    mobilesync_error_t e = mobilesync_send_changes(client, batch, last, actions);
    plist_free(batch);
    mobilesync_actions_free(actions);
    plist_t mapping = NULL;
    if (e != MOBILESYNC_E_SUCCESS || mobilesync_remap_identifiers(client, &mapping) != MOBILESYNC_E_SUCCESS)
        return NULL;
    const char* id = mapping ? string_at(mapping, key) : NULL;
    char* out = id ? strdup(id) : NULL;
    plist_free(mapping);
    return out;
}
