#include "zeb_sqlite_regexp.h"

#include <regex>

namespace zeb {

namespace {

void regexpFunction(sqlite3_context* context, int count, sqlite3_value** values) {
    if (count != 2 || sqlite3_value_type(values[0]) == SQLITE_NULL || sqlite3_value_type(values[1]) == SQLITE_NULL) {
        sqlite3_result_error(context, "SQL function regexp() called with invalid arguments.\n", -1);
        return;
    }
    const char* pattern = reinterpret_cast<const char*>(sqlite3_value_text(values[0]));
    const char* text = reinterpret_cast<const char*>(sqlite3_value_text(values[1]));
    try {
        std::regex expression(pattern);
        sqlite3_result_int(context, std::regex_match(text, expression) ? 1 : 0);
    } catch (const std::regex_error&) {
        sqlite3_result_error(context, "SQL function regexp(): invalid pattern.\n", -1);
    }
}

}  // namespace

int registerRegexp(sqlite3* db) {
    return sqlite3_create_function(db, "regexp", 2, SQLITE_UTF8, nullptr, regexpFunction, nullptr, nullptr);
}

}  // namespace zeb
