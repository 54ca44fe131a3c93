// The value tree that received property lists and lockdown values become:
// a tagged variant, with CIOSDictionary for dictionaries.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

// The tags are the numbers the rest of the worker knows the kinds by.
enum class VariantTag : uint16_t {
    Empty = 0,
    Int32 = 3,
    Double = 5,
    String = 8,  // UTF-8 text
    Bool = 11,
    Dictionary = 13,
    Int64 = 20,
    Array = 8204,
};

class CIOSDictionary;

class PlistVariant {
public:
    using Array = std::vector<PlistVariant>;
    using DictionaryRef = std::shared_ptr<CIOSDictionary>;

    PlistVariant() = default;
    static PlistVariant Int32(int32_t v) { return PlistVariant(Storage(std::in_place_index<1>, v)); }
    static PlistVariant Double(double v) { return PlistVariant(Storage(std::in_place_index<2>, v)); }
    static PlistVariant String(std::string v) { return PlistVariant(Storage(std::in_place_index<3>, std::move(v))); }
    static PlistVariant Bool(bool v) { return PlistVariant(Storage(std::in_place_index<4>, v)); }
    static PlistVariant Dictionary(DictionaryRef v) { return PlistVariant(Storage(std::in_place_index<5>, std::move(v))); }
    static PlistVariant Int64(int64_t v) { return PlistVariant(Storage(std::in_place_index<6>, v)); }
    static PlistVariant MakeArray(Array v) { return PlistVariant(Storage(std::in_place_index<7>, std::move(v))); }

    VariantTag tag() const;
    bool empty() const { return value_.index() == 0; }
    void clear() { value_ = std::monostate{}; }

    // Each reads its own kind and gives a zero value for any other.
    int32_t int32() const;
    double real() const;
    const std::string& text() const;
    bool boolean() const;
    // A true boolean as a 16-bit word with all bits set, false as 0.
    int16_t booleanWord() const { return boolean() ? -1 : 0; }
    const DictionaryRef& dictionary() const;
    int64_t int64() const;
    const Array& array() const;
    Array& array();  // the array to append to; turns an empty variant into one

    // Either integer kind as 64 bits; false for anything else.
    bool ToInteger(int64_t& out) const;
    // A dictionary member or array element, or null.
    const PlistVariant* Find(const std::string& key) const;
    const PlistVariant* At(size_t index) const;

private:
    using Storage = std::variant<std::monostate, int32_t, double, std::string, bool, DictionaryRef, int64_t, Array>;
    explicit PlistVariant(Storage v) : value_(std::move(v)) {}
    Storage value_;
};

// A dictionary of the value tree: keys as they stood in the XML or in CF,
// walked in key order. Shared between the variants that hold it.
class CIOSDictionary {
public:
    using Map = std::map<std::string, PlistVariant>;

    // Stores value under key, replacing what was there.
    void Insert(const std::string& key, PlistVariant value) { entries_[key] = std::move(value); }
    const PlistVariant* Find(const std::string& key) const;
    size_t size() const { return entries_.size(); }
    const Map& entries() const { return entries_; }
    Map::const_iterator begin() const { return entries_.begin(); }
    Map::const_iterator end() const { return entries_.end(); }

private:
    Map entries_;
};
