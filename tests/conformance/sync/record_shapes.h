/* What a record of each entity must look like on the wire (field names and
 * value types as hosts read them), and a one-line text form of values. */
#pragma once

#include <plist/plist.h>

#include <stdio.h>

/* NULL when `record` has the fields its entity needs, in the right types;
 * otherwise what is wrong. Entities not described here pass. */
const char* record_shape_fault(const char* entity, plist_t record);

/* Prints a value on one line: strings as they are (new lines as \n),
 * integers signed, dates as UTC "YYYY-MM-DDTHH:MM:SSZ", arrays as
 * "[a, b]". */
void print_value(FILE* out, plist_t value);
