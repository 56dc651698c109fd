// SPDX-License-Identifier: BSD-3-Clause
// Writing an element of a sequence item.
#include "kxmap.h"

LVSeqDicomTag::LVSeqDicomTag(const DcmTag& target, const std::list<int>& way) : LVDicomTag(target), path(way) {}

void LVSeqDicomTag::assignValue(MappingSession& session, Value* value)
{
    if (path.size() <= 2) return LVDicomTag::assignValue(session, value);
    std::list<int> rest(path); // getParentItem() shortens it, and the rule is applied again
    if (DcmItem* item = getParentItem(rest, session.dataset)) return assignValueInner(*item, value);
    OFLOG_DEBUG(logger,
                "Couldn't find parentitem for the LVSeqDicomTag: " << static_cast<const DcmTagKey&>(tag) << "=");
}
