// SPDX-License-Identifier: BSD-3-Clause
// The study record's string-keyed store.
#include "KXCustomFields.h"

#include <string_view>
#include <utility>

const char* KXCustomFields::getFieldValue(const char* name) const
{
    if (name == nullptr) return nullptr;
    const auto field = fields_.find(std::string_view(name)); // without making a std::string of the name
    return field == fields_.end() ? nullptr : field->second.c_str();
}

void KXCustomFields::setFieldValue(const char* name, const char* value)
{
    if (name == nullptr) return;
    const auto field = fields_.find(std::string_view(name));
    if (value == nullptr) {
        if (field != fields_.end()) fields_.erase(field);
        return;
    }
    std::string text(value); // first, since `value` may be the very text that is overwritten
    if (field == fields_.end()) {
        fields_.emplace(name, std::move(text));
    } else {
        field->second = std::move(text);
    }
}
