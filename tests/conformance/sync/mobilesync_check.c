/* The simulator's com.apple.mobilesync through libimobiledevice's own
 * mobilesync client (mobilesync_send/receive only where the device's anchor
 * has to be seen, which mobilesync_start keeps to itself):
 *
 *   mobilesync_check read UDID CLASS       slow sync reading every record, each
 *                                          page acknowledged; prints
 *                                          "records N pages P parents A children B"
 *                                          (and the time taken on stderr)
 *   mobilesync_check list UDID CLASS       the same, one line per record:
 *                                          "ID|ENTITY|NAME"
 *   mobilesync_check add UDID FIRST LAST   reads all, then sends a contact and a
 *                                          phone number linked by the host's id;
 *                                          prints "contact ID phone ID"
 *   mobilesync_check clear UDID CLASS      clears the class on the device
 *   mobilesync_check anchor UDID           finishes an empty contacts session and
 *                                          prints the device's anchor from it
 *   mobilesync_check changes UDID ANCHOR   a contacts session with that anchor;
 *                                          prints "fast|slow parents P children C"
 *   mobilesync_check refusals UDID         classes and host versions the device
 *                                          turns down, with the device's reason
 */
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <libimobiledevice/mobilesync.h>
#include <plist/plist.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#define EMPTY "___EmptyParameterString___"
#define CONTACTS "com.apple.Contacts"
#define ENTITY_KEY "com.apple.syncservices.RecordEntityName"

static idevice_t device;

static int fail(const char* what) {
    fprintf(stderr, "FAIL: %s\n", what);
    return 1;
}

static int failed(const char* what, int code) {
    fprintf(stderr, "FAIL: %s (%d)\n", what, code);
    return 1;
}

static mobilesync_client_t connect_sync(void) {
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

/* mobilesync_start with a host anchor of its own; the device's refusal,
 * if any, in *error. */
static mobilesync_error_t start_session(mobilesync_client_t client, const char* data_class, const char* device_anchor,
                                        uint64_t version, mobilesync_sync_type_t* type, char** error) {
    mobilesync_anchors_t anchors = mobilesync_anchors_new(device_anchor, "2024-05-01 10-00-00 +0000");
    uint64_t device_version = 0;
    mobilesync_error_t e = mobilesync_start(client, data_class, anchors, version, type, &device_version, error);
    mobilesync_anchors_free(anchors);
    if (e == MOBILESYNC_E_SUCCESS && strcmp(data_class, CONTACTS) == 0 && device_version != 106)
        e = MOBILESYNC_E_UNKNOWN_ERROR;
    return e;
}

static const char* string_at(plist_t node, const char* key) {
    plist_t item = key ? plist_dict_get_item(node, key) : node;
    if (!item || plist_get_node_type(item) != PLIST_STRING) return NULL;
    return plist_get_string_ptr(item, NULL);
}

static const char* array_string(plist_t array, uint32_t index) {
    if (!array || plist_get_node_type(array) != PLIST_ARRAY || index >= plist_array_get_size(array)) return NULL;
    return string_at(plist_array_get_item(array, index), NULL);
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
        if (strcmp(array_string(names, i), entity) == 0) return 1;
    return 0;
}

struct reading {
    unsigned records, pages, parents, children;
    plist_t seen; /* every record received, by id */
    int list;
};

/* Receives pages until the last, acknowledging each, and checks their
 * order: no parent after a child, and every child's contact already seen. */
static int receive_pages(mobilesync_client_t client, struct reading* r) {
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
            if (is_parent(entity)) {
                if (r->children) return fail("a parent record after a child record");
                r->parents++;
            } else {
                r->children++;
                const char* owner = array_string(plist_dict_get_item(record, "contact"), 0);
                if (owner && !plist_dict_get_item(r->seen, owner)) return fail("a child before its contact");
            }
            if (r->list) {
                const char* name = string_at(record, "first name");
                if (!name) name = string_at(record, "company name");
                if (!name) name = string_at(record, "name");
                if (!name) name = string_at(record, "value");
                const char* last_name = string_at(record, "last name");
                printf("%s|%s|%s%s%s\n", id, entity, name ? name : "", last_name ? " " : "", last_name ? last_name : "");
            }
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

static double seconds_since(const struct timespec* t0) {
    struct timespec t1;
    clock_gettime(CLOCK_MONOTONIC, &t1);
    return (double)(t1.tv_sec - t0->tv_sec) + (t1.tv_nsec - t0->tv_nsec) / 1e9;
}

static int read_all(const char* data_class, int list) {
    struct timespec t0, t_records;
    clock_gettime(CLOCK_MONOTONIC, &t0);
    mobilesync_client_t client = connect_sync();
    if (!client) return fail("mobilesync did not start");
    mobilesync_sync_type_t type = 0;
    char* error = NULL;
    mobilesync_error_t e = start_session(client, data_class, NULL, 106, &type, &error);
    if (e != MOBILESYNC_E_SUCCESS) return failed(error ? error : "start", e);
    if (type != MOBILESYNC_SYNC_TYPE_SLOW) return fail("a first sync that is not slow");
    clock_gettime(CLOCK_MONOTONIC, &t_records);
    if ((e = mobilesync_get_all_records_from_device(client)) != MOBILESYNC_E_SUCCESS) return failed("get all", e);
    struct reading r = {0, 0, 0, 0, plist_new_dict(), list};
    if (receive_pages(client, &r)) return 1;
    const double records_time = seconds_since(&t_records);
    if ((e = mobilesync_ready_to_send_changes_from_computer(client)) != MOBILESYNC_E_SUCCESS)
        return failed("ready to receive", e);
    if ((e = mobilesync_finish(client)) != MOBILESYNC_E_SUCCESS) return failed("finish", e);
    mobilesync_client_free(client);
    if (!list)
        printf("records %u pages %u parents %u children %u\n", r.records, r.pages, r.parents, r.children);
    fprintf(stderr, "read took %.3f s, %.3f s of it for the records\n", seconds_since(&t0), records_time);
    plist_free(r.seen);
    return 0;
}

static plist_t new_record(const char* entity) {
    plist_t record = plist_new_dict();
    plist_dict_set_item(record, ENTITY_KEY, plist_new_string(entity));
    return record;
}

static plist_t one_link(const char* id) {
    plist_t links = plist_new_array();
    plist_array_append_item(links, plist_new_string(id));
    return links;
}

/* Sends one batch of {key: record} and answers the id the device gave `key`. */
static char* send_one(mobilesync_client_t client, const char* key, plist_t record, const char* entity, int last) {
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

/* Reads all, then sends a contact and its phone number, the phone linked
 * by the host's id for the contact. */
static int add(const char* first, const char* last) {
    mobilesync_client_t client = connect_sync();
    if (!client) return fail("mobilesync did not start");
    mobilesync_sync_type_t type = 0;
    char* error = NULL;
    mobilesync_error_t e = start_session(client, CONTACTS, NULL, 106, &type, &error);
    if (e != MOBILESYNC_E_SUCCESS) return failed(error ? error : "start", e);
    if ((e = mobilesync_get_all_records_from_device(client)) != MOBILESYNC_E_SUCCESS) return failed("get all", e);
    struct reading r = {0, 0, 0, 0, plist_new_dict(), 0};
    if (receive_pages(client, &r)) return 1;
    if ((e = mobilesync_ready_to_send_changes_from_computer(client)) != MOBILESYNC_E_SUCCESS)
        return failed("ready to receive", e);

    plist_t contact = new_record("com.apple.contacts.Contact");
    plist_dict_set_item(contact, "first name", plist_new_string(first));
    plist_dict_set_item(contact, "last name", plist_new_string(last));
    plist_dict_set_item(contact, "display as company", plist_new_string("person"));
    char* contact_id = send_one(client, "HOST-CONTACT-1", contact, "com.apple.contacts.Contact", 0);
    if (!contact_id) return fail("no device id for the new contact");
    plist_t phone = new_record("com.apple.contacts.Phone Number");
    plist_dict_set_item(phone, "type", plist_new_string("mobile"));
    plist_dict_set_item(phone, "value", plist_new_string("+1 555 0199 0000"));
    plist_dict_set_item(phone, "contact", one_link("HOST-CONTACT-1"));
    char* phone_id = send_one(client, "HOST-PHONE-1", phone, "com.apple.contacts.Phone Number", 1);
    if (!phone_id) return fail("no device id for a phone linked by the host's contact id");

    if ((e = mobilesync_finish(client)) != MOBILESYNC_E_SUCCESS) return failed("finish", e);
    printf("contact %s phone %s\n", contact_id, phone_id);
    mobilesync_client_free(client);
    plist_free(r.seen);
    free(contact_id);
    free(phone_id);
    return 0;
}

static int clear(const char* data_class) {
    mobilesync_client_t client = connect_sync();
    if (!client) return fail("mobilesync did not start");
    mobilesync_sync_type_t type = 0;
    char* error = NULL;
    mobilesync_error_t e = start_session(client, data_class, NULL, 106, &type, &error);
    if (e != MOBILESYNC_E_SUCCESS) return failed(error ? error : "start", e);
    if ((e = mobilesync_clear_all_records_on_device(client)) != MOBILESYNC_E_SUCCESS) return failed("clear", e);
    if ((e = mobilesync_finish(client)) != MOBILESYNC_E_SUCCESS) return failed("finish", e);
    mobilesync_client_free(client);
    return 0;
}

/* A slow session started with the raw messages, to see the anchor the
 * device hands out; finished at once. Answers that anchor, or NULL. */
static char* raw_session(mobilesync_client_t client) {
    plist_t start = plist_new_array();
    plist_array_append_item(start, plist_new_string("SDMessageSyncDataClassWithDevice"));
    plist_array_append_item(start, plist_new_string(CONTACTS));
    plist_array_append_item(start, plist_new_string("---"));
    plist_array_append_item(start, plist_new_string("2024-05-01 14-00-00 +0000"));
    plist_array_append_item(start, plist_new_uint(106));
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
    plist_t finish = plist_new_array();
    plist_array_append_item(finish, plist_new_string("SDMessageFinishSessionOnDevice"));
    plist_array_append_item(finish, plist_new_string(CONTACTS));
    mobilesync_send(client, finish);
    plist_free(finish);
    reply = NULL;
    const int ok = mobilesync_receive(client, &reply) == MOBILESYNC_E_SUCCESS &&
                   strcmp(array_string(reply, 0), "SDMessageDeviceFinishedSession") == 0;
    plist_free(reply);
    if (!ok) {
        free(anchor);
        return NULL;
    }
    return anchor;
}

static int anchor(void) {
    mobilesync_client_t client = connect_sync();
    if (!client) return fail("mobilesync did not start");
    char* anchor = raw_session(client);
    if (!anchor) return fail("session");
    printf("%s\n", anchor);
    free(anchor);
    mobilesync_client_free(client);
    return 0;
}

/* A contacts session with the given device anchor: the changes come in
 * two pages whatever the sync type, parents then children. */
static int changes(const char* device_anchor) {
    mobilesync_client_t client = connect_sync();
    if (!client) return fail("mobilesync did not start");
    mobilesync_sync_type_t type = 0;
    char* error = NULL;
    mobilesync_error_t e = start_session(client, CONTACTS, device_anchor, 106, &type, &error);
    if (e != MOBILESYNC_E_SUCCESS) return failed(error ? error : "start", e);
    if ((e = mobilesync_get_changes_from_device(client)) != MOBILESYNC_E_SUCCESS) return failed("get changes", e);
    struct reading r = {0, 0, 0, 0, plist_new_dict(), 0};
    if (receive_pages(client, &r)) return 1;
    if (r.pages != 2) return failed("pages of contact changes", (int)r.pages);
    if ((e = mobilesync_ready_to_send_changes_from_computer(client)) != MOBILESYNC_E_SUCCESS)
        return failed("ready after changes", e);
    if ((e = mobilesync_finish(client)) != MOBILESYNC_E_SUCCESS) return failed("finish", e);
    printf("%s parents %u children %u\n", type == MOBILESYNC_SYNC_TYPE_FAST ? "fast" : "slow", r.parents, r.children);
    mobilesync_client_free(client);
    plist_free(r.seen);
    return 0;
}

static int expect_refusal(mobilesync_client_t client, const char* data_class, uint64_t version, const char* reason) {
    mobilesync_sync_type_t type = 0;
    char* error = NULL;
    mobilesync_error_t e = start_session(client, data_class, NULL, version, &type, &error);
    if (e != MOBILESYNC_E_SYNC_REFUSED) return failed(data_class, e);
    if (!error || strcmp(error, reason) != 0) return fail(error ? error : "a refusal without a reason");
    free(error);
    /* The host still finishes the class it asked for. */
    if ((e = mobilesync_finish(client)) != MOBILESYNC_E_SUCCESS) return failed("finish after a refusal", e);
    return 0;
}

static int refusals(void) {
    mobilesync_client_t client = connect_sync();
    if (!client) return fail("mobilesync did not start");
    const char* no_store = "No Data Store available for data class";
    if (expect_refusal(client, "com.apple.MailAccounts", 102, no_store) ||
        expect_refusal(client, "com.example.Nothing", 100, no_store) ||
        expect_refusal(client, CONTACTS, 0,
                       "Your computer's software is out of date. Please update and try again!"))
        return 1;
    mobilesync_client_free(client);
    printf("refusals ok\n");
    return 0;
}

int main(int argc, char** argv) {
    if (argc < 3) return fail("usage: mobilesync_check read|list|add|clear|anchor|changes|refusals UDID ...");
    if (idevice_new(&device, argv[2]) != IDEVICE_E_SUCCESS) return fail("no device");
    int rc = 2;
    if ((strcmp(argv[1], "read") == 0 || strcmp(argv[1], "list") == 0) && argc > 3)
        rc = read_all(argv[3], argv[1][0] == 'l');
    else if (strcmp(argv[1], "add") == 0 && argc > 4)
        rc = add(argv[3], argv[4]);
    else if (strcmp(argv[1], "clear") == 0 && argc > 3)
        rc = clear(argv[3]);
    else if (strcmp(argv[1], "anchor") == 0)
        rc = anchor();
    else if (strcmp(argv[1], "changes") == 0 && argc > 3)
        rc = changes(argv[3]);
    else if (strcmp(argv[1], "refusals") == 0)
        rc = refusals();
    idevice_free(device);
    return rc;
}
