#include "zeb_plist_variant.h"

namespace {

const std::string kNoText;
const PlistVariant::DictionaryRef kNoDictionary;
const PlistVariant::Array kNoArray;

}  // namespace

VariantTag PlistVariant::tag() const {
    static constexpr VariantTag kByIndex[] = {VariantTag::Empty,  VariantTag::Int32,      VariantTag::Double,
                                              VariantTag::String, VariantTag::Bool,       VariantTag::Dictionary,
                                              VariantTag::Int64,  VariantTag::Array};
    return kByIndex[value_.index()];
}

int32_t PlistVariant::int32() const { return value_.index() == 1 ? std::get<1>(value_) : 0; }
double PlistVariant::real() const { return value_.index() == 2 ? std::get<2>(value_) : 0.0; }
const std::string& PlistVariant::text() const { return value_.index() == 3 ? std::get<3>(value_) : kNoText; }
bool PlistVariant::boolean() const { return value_.index() == 4 && std::get<4>(value_); }
const PlistVariant::DictionaryRef& PlistVariant::dictionary() const {
    return value_.index() == 5 ? std::get<5>(value_) : kNoDictionary;
}
int64_t PlistVariant::int64() const { return value_.index() == 6 ? std::get<6>(value_) : 0; }
const PlistVariant::Array& PlistVariant::array() const { return value_.index() == 7 ? std::get<7>(value_) : kNoArray; }

PlistVariant::Array& PlistVariant::array() {
    if (value_.index() != 7) value_ = Array{};
    return std::get<7>(value_);
}

bool PlistVariant::ToInteger(int64_t& out) const {
    if (value_.index() == 1) {
        out = std::get<1>(value_);
        return true;
    }
    if (value_.index() == 6) {
        out = std::get<6>(value_);
        return true;
    }
    return false;
}

const PlistVariant* PlistVariant::Find(const std::string& key) const {
    const auto& d = dictionary();
    return d ? d->Find(key) : nullptr;
}

const PlistVariant* PlistVariant::At(size_t index) const {
    const auto& a = array();
    return index < a.size() ? &a[index] : nullptr;
}

const PlistVariant* CIOSDictionary::Find(const std::string& key) const {
    auto found = entries_.find(key);
    return found == entries_.end() ? nullptr : &found->second;
}
