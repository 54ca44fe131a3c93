// JSON from a peer, parsed with a bound on its nesting.
//
// The parser, a deep copy and the writer all recurse once per level of
// nesting, so a text of a hundred thousand brackets would end the process on
// its stack. No text the parent or the worker writes nests more than a
// handful of levels; anything deeper than the bound is bad JSON, answered as
// any other text that does not parse.
#pragma once

#include <rapidjson/document.h>

#include <cstddef>
#include <cstring>

namespace zeb {

inline constexpr size_t kJsonDepthLimit = 512;

// True when no array or object of the text opens more than `limit` levels
// deep. Brackets inside strings don't count; the text need not be valid.
inline bool jsonNestingWithin(const char* text, size_t length, size_t limit = kJsonDepthLimit) {
    size_t depth = 0;
    bool inString = false;
    for (size_t i = 0; i < length; ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;
            else if (c == '"') inString = false;
            continue;
        }
        switch (c) {
            case '"': inString = true; break;
            case '[':
            case '{':
                if (++depth > limit) return false;
                break;
            case ']':
            case '}':
                if (depth > 0) --depth;
                break;
            default: break;
        }
    }
    return true;
}

// Parses `length` bytes of `text` into `document`; false on a parse error or
// a text nested too deep. Either way a failed document also reports
// HasParseError(), so callers that look only there see the same answer.
inline bool parseJson(rapidjson::Document& document, const char* text, size_t length) {
    if (!jsonNestingWithin(text, length)) {
        document.Parse("", 0);  // an empty document: the parse error of a text that isn't JSON
        return false;
    }
    document.Parse(text, length);
    return !document.HasParseError();
}

inline bool parseJson(rapidjson::Document& document, const char* text) {
    return parseJson(document, text, std::strlen(text));
}

}  // namespace zeb
