// SPDX-License-Identifier: BSD-3-Clause
// From the two texts of a tag reference to the element.
#include "kxmap/functions/tagreference.h"

#include "kxmap/core/elements.h"
#include "kxmap/core/numbers.h"

DcmElement* kxmap::findTag(MappingSession& session, const char* group, const char* element)
{
    unsigned int groupNumber = 0;
    unsigned int elementNumber = 0;
    if (group == nullptr || !readHex4(group, groupNumber)) return nullptr;
    if (element == nullptr || !readHex4(element, elementNumber)) return nullptr;
    if (session.dataset == nullptr) return nullptr;
    return findElement(*session.dataset, {static_cast<Uint16>(groupNumber), static_cast<Uint16>(elementNumber)});
}

bool kxmap::isPlainTag(const std::list<Expression*>& params)
{
    return params.size() == 2 && params.front()->text != nullptr && params.back()->text != nullptr;
}

DcmElement* kxmap::findPlainTag(MappingSession& session, const std::list<Expression*>& params)
{
    return findTag(session, params.front()->text, params.back()->text);
}
