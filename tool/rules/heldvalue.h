// SPDX-License-Identifier: BSD-3-Clause
// What an expression came to, held while it is looked at.
#pragma once

#include "kxmap.h"

#include <optional>
#include <string>

namespace kxtool {

/// A value that the engine made, and its counting, for a value that an exception may pass.
class HeldValue {
public:
    explicit HeldValue(Value* value) : value_(value) {}
    ~HeldValue()
    {
        if (value_ != nullptr && --value_->refCount == 0) delete value_;
    }
    HeldValue(const HeldValue&) = delete;
    HeldValue& operator=(const HeldValue&) = delete;

    Value* get() const { return value_; }

    /// @return what it stands for; null for a text and for NULL.
    DcmElement* element() const { return value_ == nullptr ? nullptr : static_cast<DcmElement*>(*value_); }

    /// @return as rules see it; none for NULL.
    std::optional<std::string> text() const
    {
        if (value_ == nullptr) return std::nullopt;
        const char* text = value_->getString();
        return text == nullptr ? "" : text;
    }

private:
    Value* value_;
};

} // namespace kxtool
