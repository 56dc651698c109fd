// SPDX-License-Identifier: BSD-3-Clause
// Writing a custom field of the study record.
#include "kxmap.h"

LVCustomField::LVCustomField(const std::string& field) : name(field) {}

void LVCustomField::assignValue(MappingSession& session, Value* value)
{
    session.customFields.setFieldValue(name.c_str(), value == nullptr ? nullptr : value->getString());
}
