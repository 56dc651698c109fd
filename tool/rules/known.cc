// SPDX-License-Identifier: BSD-3-Clause
#include "tool/rules/known.h"

#include "tool/rules/builtins.h"
#include "tool/rules/heldvalue.h"
#include "tool/rules/messagetap.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <tuple>

namespace kxtool {
namespace {

using Presence = Known::Presence;

const Bytes& digits()
{
    static const Bytes set = bytesOf("0123456789");
    return set;
}

/// What the built-in itself makes of constants.
Known computed(const FunctionDef* function, std::span<const Known> arguments)
{
    Expression call;
    call.func = function;
    for (const Known& argument : arguments) {
        auto node = std::make_unique<Expression>();
        if (argument.isNever()) node->func = &f_NULL;
        else node->text = newdup(argument.text->c_str());
        call.params.push_back(node.get());
        std::ignore = node.release(); // the call owns it now
    }
    const MessageTap quiet;
    MappingSession nothing;
    const auto text = HeldValue(call.getValue(nothing)).text();
    return text ? Known::always(*text) : Known::never();
}

/// @return whether a path's argument is read as an item's number.
bool isItemAt(std::size_t index)
{
    return index % 3 == 2;
}

std::optional<int> readPiece(const std::string& text, std::size_t index)
{
    if (isItemAt(index)) return numberIn(text);
    unsigned int component = 0;
    if (std::sscanf(text.c_str(), "%4X", &component) != 1) return std::nullopt;
    return static_cast<int>(component & 0xFFFFU);
}

/// What is read along a path, or under a name.
Known learnRead(Way way, std::span<const Known> arguments, const Surroundings& surroundings)
{
    const auto isUnreadable = [&, index = std::size_t{0}](const Known& argument) mutable {
        const std::size_t at = index++;
        return argument.isNever() ||
               (way != Way::Variable && way != Way::Field && argument.text && !readPiece(*argument.text, at));
    };
    if (std::ranges::any_of(arguments, isUnreadable)) return Known::never();
    if (!std::ranges::all_of(arguments, &Known::isConstant)) return {};
    if (way == Way::Variable) return surroundings.variable(*arguments[0].text);
    if (way == Way::Field) return surroundings.field(*arguments[0].text);
    return surroundings.element(*pathOf(arguments));
}

} // namespace

Bytes bytesOf(std::string_view text)
{
    Bytes set;
    for (const char byte : text) set.set(static_cast<unsigned char>(byte));
    return set;
}

Known Known::never()
{
    Known known;
    known.presence = Presence::Never;
    return known;
}

Known Known::always(std::string text)
{
    Known known;
    known.presence = Presence::Always;
    known.least = known.most = text.size();
    known.holds = known.may = bytesOf(text);
    known.text = std::move(text);
    return known;
}

Known Known::number(Presence presence)
{
    Known known;
    known.presence = presence;
    known.least = 1;
    known.most = std::string_view("-2147483648").size();
    known.may = digits() | bytesOf("-");
    known.isNumber = true;
    return known;
}

Known Known::with(Presence other) const
{
    Known known = *this;
    known.presence = other;
    return known;
}

Known either(const Known& a, const Known& b)
{
    const Presence presence = a.presence == b.presence ? a.presence : Presence::Perhaps;
    if (a.isNever() || b.isNever()) return (a.isNever() ? b : a).with(presence);
    Known known;
    known.presence = presence;
    if (a.text == b.text) known.text = a.text;
    known.least = std::min(a.least, b.least);
    known.most = std::max(a.most, b.most);
    known.holds = a.holds & b.holds;
    known.may = a.may | b.may;
    known.isNumber = a.isNumber && b.isNumber;
    known.beginsWithNumber = readsAsNumber(a) == Presence::Always && readsAsNumber(b) == Presence::Always;
    return known;
}

bool canBeEqual(const Known& a, const Known& b)
{
    if (a.isNever() || b.isNever()) return false;
    if (a.text && b.text) return *a.text == *b.text;
    if (a.least > b.most || b.least > a.most) return false;
    if ((a.holds & ~b.may).any() || (b.holds & ~a.may).any()) return false;
    const auto isOtherForm = [](const Known& number, const Known& text) {
        if (!number.isNumber || !text.text) return false;
        const auto read = numberIn(*text.text);
        return !read || std::to_string(*read) != *text.text;
    };
    return !isOtherForm(a, b) && !isOtherForm(b, a);
}

Presence readsAsNumber(const Known& value)
{
    if (value.text) return numberIn(*value.text) ? Presence::Always : Presence::Never;
    if (value.isNumber || value.beginsWithNumber || (value.least > 0 && (value.may & ~digits()).none()))
        return Presence::Always;
    return value.most == 0 || (value.may & digits()).none() ? Presence::Never : Presence::Perhaps;
}

std::optional<int> numberIn(std::string_view text)
{
    int number = 0;
    if (std::sscanf(std::string(text).c_str(), "%d", &number) != 1) return std::nullopt;
    return number;
}

std::optional<int> numberIn(const Known& value)
{
    return value.isNever() || !value.text ? std::nullopt : numberIn(*value.text);
}

bool areSame(const Expression& a, const Expression& b)
{
    if (a.func != b.func || a.params.size() != b.params.size()) return false;
    if (a.func == nullptr) return std::string_view(a.text ? a.text : "") == std::string_view(b.text ? b.text : "");
    return wayOf(a) != Way::Drawn && std::ranges::equal(a.params, b.params, [](const auto* one, const auto* other) {
               return areSame(*one, *other);
           });
}

Known Surroundings::element(const std::vector<int>& /*path*/) const
{
    return {};
}

Known Surroundings::variable(const std::string& /*name*/) const
{
    return {};
}

Known Surroundings::field(const std::string& /*name*/) const
{
    return {};
}

Known Surroundings::narrowed(const Expression& /*node*/, Known known) const
{
    return known;
}

Knowledge::Knowledge(const Expression& root, const Surroundings& surroundings)
{
    learn(root, surroundings);
}

// Parsed trees are not deeper than the engine's limit of nesting.
const Known& Knowledge::learn(const Expression& node, const Surroundings& surroundings)
{
    if (node.func == nullptr) return known_[&node] = Known::always(node.text == nullptr ? "" : node.text);
    std::vector<Known> arguments;
    arguments.reserve(node.params.size());
    for (const Expression* argument : node.params) arguments.push_back(learn(*argument, surroundings));
    Known known = learnCall(node, arguments, surroundings);
    if (wayOf(node) == Way::Equal && areSame(*node.params.front(), *node.params.back())) known = Known::always("true");
    return known_[&node] = surroundings.narrowed(node, std::move(known));
}

Known Knowledge::learnCall(const Expression& call, std::span<const Known> arguments, const Surroundings& surroundings)
{
    const Builtin& builtin = builtinOf(call.func);
    switch (const Way way = wayOf(call)) {
    case Way::Brackets:
        return arguments.front();
    case Way::Tag:
    case Way::Path:
    case Way::Variable:
    case Way::Field:
        return learnRead(way, arguments, surroundings);
    case Way::Computed:
        if (std::ranges::all_of(arguments, &Known::isConstant)) return computed(call.func, arguments);
        break;
    default:
        break;
    }
    return builtin.of(arguments);
}

std::optional<std::vector<int>> pathOf(std::span<const Known> arguments)
{
    std::vector<int> path;
    for (const Known& argument : arguments) {
        const auto piece = argument.isAlways() && argument.text ? readPiece(*argument.text, path.size()) : std::nullopt;
        if (!piece) return std::nullopt;
        path.push_back(*piece);
    }
    return path;
}

std::optional<std::vector<int>> pathOf(const Expression& node)
{
    if (const Way way = wayOf(node); way != Way::Tag && way != Way::Path) return std::nullopt;
    std::vector<Known> arguments;
    for (const Expression* argument : node.params)
        arguments.push_back(argument->func == nullptr ? Known::always(argument->text == nullptr ? "" : argument->text)
                                                      : Known{});
    return pathOf(arguments);
}

} // namespace kxtool
