#include "record_shapes.h"

#include <stdint.h>
#include <string.h>
#include <time.h>

/* Seconds from the Unix epoch to the property-list one (2001-01-01). */
#define PLIST_EPOCH 978307200

static int has_type(plist_t record, const char* key, plist_type type) {
    plist_t value = plist_dict_get_item(record, key);
    return value && plist_get_node_type(value) == type;
}

/* Absent, or of that type. */
static int optional_type(plist_t record, const char* key, plist_type type) {
    return !plist_dict_get_item(record, key) || has_type(record, key, type);
}

static int64_t integer(plist_t record, const char* key) {
    uint64_t value = 0;
    plist_get_uint_val(plist_dict_get_item(record, key), &value);
    return (int64_t)value;
}

static int64_t date(plist_t record, const char* key) {
    int32_t sec = 0, usec = 0;
    plist_get_date_val(plist_dict_get_item(record, key), &sec, &usec);
    return sec;
}

/* An array of at least `min` and at most `max` strings. */
static int links(plist_t record, const char* key, uint32_t min, uint32_t max) {
    plist_t array = plist_dict_get_item(record, key);
    if (!array || plist_get_node_type(array) != PLIST_ARRAY) return 0;
    uint32_t n = plist_array_get_size(array);
    for (uint32_t i = 0; i < n; ++i)
        if (plist_get_node_type(plist_array_get_item(array, i)) != PLIST_STRING) return 0;
    return n >= min && n <= max;
}

static const char* calendar_fault(plist_t r) {
    if (!has_type(r, "title", PLIST_STRING)) return "a calendar without a title";
    if (!has_type(r, "read only", PLIST_UINT) || (uint64_t)integer(r, "read only") > 1)
        return "a calendar's \"read only\" is not the integer 0 or 1";
    plist_t color = plist_dict_get_item(r, "colorComponents");
    if (!color || plist_get_node_type(color) != PLIST_ARRAY || plist_array_get_size(color) != 4)
        return "a calendar's colorComponents are not four numbers";
    for (uint32_t i = 0; i < 4; ++i)
        if (plist_get_node_type(plist_array_get_item(color, i)) != PLIST_UINT)
            return "a calendar's colorComponents are not integers";
    return NULL;
}

static const char* event_fault(plist_t r) {
    if (!has_type(r, "summary", PLIST_STRING)) return "an event without a summary";
    if (!has_type(r, "start date", PLIST_DATE) || !has_type(r, "end date", PLIST_DATE))
        return "an event without start and end dates";
    if (date(r, "end date") < date(r, "start date")) return "an event that ends before it starts";
    if (plist_dict_get_item(r, "all day") && (!has_type(r, "all day", PLIST_UINT) || integer(r, "all day") != 1))
        return "an event's \"all day\" is not the integer 1";
    if (!optional_type(r, "start date.timezone", PLIST_STRING) || !optional_type(r, "description", PLIST_STRING) ||
        !optional_type(r, "location", PLIST_STRING) || !optional_type(r, "url", PLIST_STRING))
        return "an event with a text field that is not a string";
    if (!links(r, "calendar", 1, 8)) return "an event without a calendar";
    return NULL;
}

static const char* recurrence_fault(plist_t r) {
    if (!has_type(r, "frequency", PLIST_STRING) || !has_type(r, "interval", PLIST_UINT))
        return "a recurrence without frequency and interval";
    if (!optional_type(r, "until", PLIST_DATE)) return "a recurrence whose end is not a date";
    if (!links(r, "owner", 1, 1)) return "a recurrence without its event";
    return NULL;
}

static const char* alarm_fault(plist_t r) {
    if (!has_type(r, "triggerduration", PLIST_UINT)) return "an alarm without a trigger";
    if (!optional_type(r, "description", PLIST_STRING)) return "an alarm's description is not a string";
    if (!links(r, "owner", 1, 1)) return "an alarm without its event";
    return NULL;
}

static const char* bookmark_fault(plist_t r, int folder) {
    if (!has_type(r, "name", PLIST_STRING) || !has_type(r, "position", PLIST_UINT))
        return "a bookmark or folder without name and position";
    if (!folder && !has_type(r, "url", PLIST_STRING)) return "a bookmark without a url";
    if (plist_dict_get_item(r, "parent") && !links(r, "parent", 1, 8)) return "a parent that is not a list of ids";
    return NULL;
}

static const char* note_fault(plist_t r) {
    if (!has_type(r, "subject", PLIST_STRING) || !has_type(r, "content", PLIST_STRING) ||
        !has_type(r, "contentType", PLIST_STRING))
        return "a note without subject, content and contentType";
    if (!has_type(r, "dateCreated", PLIST_DATE) || !has_type(r, "dateModified", PLIST_DATE))
        return "a note without its dates";
    if (!optional_type(r, "author", PLIST_STRING)) return "a note's author is not a string";
    return NULL;
}

const char* record_shape_fault(const char* entity, plist_t r) {
    if (strcmp(entity, "com.apple.calendars.Calendar") == 0) return calendar_fault(r);
    if (strcmp(entity, "com.apple.calendars.Event") == 0) return event_fault(r);
    if (strcmp(entity, "com.apple.calendars.Recurrence") == 0) return recurrence_fault(r);
    if (strcmp(entity, "com.apple.calendars.DisplayAlarm") == 0) return alarm_fault(r);
    if (strcmp(entity, "com.apple.bookmarks.Folder") == 0) return bookmark_fault(r, 1);
    if (strcmp(entity, "com.apple.bookmarks.Bookmark") == 0) return bookmark_fault(r, 0);
    if (strcmp(entity, "com.apple.notes.Note") == 0) return note_fault(r);
    return NULL;
}

void print_value(FILE* out, plist_t value) {
    switch (plist_get_node_type(value)) {
    case PLIST_STRING:
        for (const char* p = plist_get_string_ptr(value, NULL); *p; ++p) {
            if (*p == '\n')
                fputs("\\n", out);
            else
                fputc(*p, out);
        }
        break;
    case PLIST_UINT: {
        uint64_t n = 0;
        plist_get_uint_val(value, &n);
        fprintf(out, "%lld", (long long)(int64_t)n);
        break;
    }
    case PLIST_DATE: {
        int32_t sec = 0, usec = 0;
        plist_get_date_val(value, &sec, &usec);
        time_t t = (time_t)sec + PLIST_EPOCH;
        struct tm tm;
        gmtime_r(&t, &tm);
        char text[32];
        strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
        fputs(text, out);
        break;
    }
    case PLIST_BOOLEAN: {
        uint8_t b = 0;
        plist_get_bool_val(value, &b);
        fputs(b ? "true" : "false", out);
        break;
    }
    case PLIST_ARRAY:
        fputc('[', out);
        for (uint32_t i = 0; i < plist_array_get_size(value); ++i) {
            if (i) fputs(", ", out);
            print_value(out, plist_array_get_item(value, i));
        }
        fputc(']', out);
        break;
    default:
        fputs("<other>", out);
    }
}
