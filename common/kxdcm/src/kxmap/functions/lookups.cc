// SPDX-License-Identifier: BSD-3-Clause
// What reads the session: tag references, variables, custom fields, elements in sequence items. All are NULL for what
// is not there, and none reports anything.
#include "kxmap.h"

#include "kxmap/core/elements.h"
#include "kxmap/core/numbers.h"
#include "kxmap/functions/operands.h"
#include "kxmap/functions/tagreference.h"

using kxmap::Arguments;
using kxmap::Operand;

namespace {

Value* valueOf(DcmElement* element)
{
    return element == nullptr ? nullptr : new TagValue(element);
}

/// Reads one piece of a sequence path: two tag components, then an item number, and again.
/// @return false for NULL and for what does not scan.
bool readPiece(const char* text, std::size_t position, int& piece)
{
    if (text == nullptr) return false;
    if (position % 3 == 2) return kxmap::readInt(text, piece);
    unsigned int component = 0;
    if (!kxmap::readHex4(text, component)) return false;
    piece = static_cast<int>(component);
    return true;
}

/// Evaluates the one argument and looks it up by its text. A NULL argument finds nothing.
template <typename Lookup>
Value* named(MappingSession& session, std::list<Expression*>& params, Lookup lookup)
{
    if (params.size() != 1) return nullptr;
    Operand operand = Arguments(session, params).next();
    const char* name = operand.text();
    const char* found = name == nullptr ? nullptr : lookup(name);
    return found == nullptr ? nullptr : new StringValue(found);
}

} // namespace

// (value): value itself. (group, element): that element of the dataset, NULL where it has none or a component is NULL
// or no hexadecimal number.
Value* empty_getValue(MappingSession& session, std::list<Expression*>& params)
{
    if (params.size() == 1) return Arguments(session, params).nextValue();
    if (kxmap::isPlainTag(params)) return valueOf(kxmap::findPlainTag(session, params));
    Arguments arguments(session, params);
    Operand group = arguments.next();
    Operand element = arguments.next();
    return valueOf(kxmap::findTag(session, group.text(), element.text()));
}

// $(name): the temporary variable's text; "@" in front reads those that outlive a mapping.
Value* var_getValue(MappingSession& session, std::list<Expression*>& params)
{
    return named(session, params, [&session](const char* name) { return session.getVariable(name); });
}

// USER(name): the custom field's text.
Value* user_getValue(MappingSession& session, std::list<Expression*>& params)
{
    return named(session, params, [&session](const char* name) { return session.customFields.getFieldValue(name); });
}

// SEQ(g1, e1, i1, ..., gN, eN): the element (gN,eN) of the item reached by the path. All arguments are evaluated; one
// that is NULL or does not scan makes the result NULL.
Value* seq_getValue(MappingSession& session, std::list<Expression*>& params)
{
    std::list<int> path;
    bool isPath = params.size() % 3 == 2;
    for (Arguments arguments(session, params); !arguments.isAtEnd();) {
        Operand operand = arguments.next();
        int piece = 0;
        isPath = readPiece(operand.text(), path.size(), piece) && isPath;
        path.push_back(piece);
    }
    if (!isPath) return nullptr;
    DcmItem* item = getParentItem(path, session.dataset);
    if (item == nullptr) return nullptr;
    return valueOf(kxmap::findElement(*item, {static_cast<Uint16>(path.front()), static_cast<Uint16>(path.back())}));
}
