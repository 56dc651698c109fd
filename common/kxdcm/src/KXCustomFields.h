// SPDX-License-Identifier: BSD-3-Clause
// The custom fields of a study record: texts by name, beside the dataset and not part of it. Rules read and write them
// with "USER(name)"; the server fills the store before it applies mappings and saves it afterwards.
#pragma once

#include <functional>
#include <map>
#include <string>

/// A string-keyed store of texts. Names and texts are bytes, compared as such: case and blanks count. A copy is a store
/// of its own. Nothing here locks.
class KXCustomFields {
public:
    /// Every field by name, in ascending order of the names' bytes.
    using Fields = std::map<std::string, std::string, std::less<>>;

    /// @param name null is a field that nobody has set.
    /// @return the store's own text, valid until this field is next written or cleared, or the store goes; null when
    ///         the field is unset. A field set to the empty text is set.
    const char* getFieldValue(const char* name) const;

    /// Writes a field; the last write wins. Throws nothing but std::bad_alloc, and then the field is as it was.
    /// @param name copied; null changes nothing.
    /// @param value copied, and may be a text of this store; null clears the field, set or not.
    void setFieldValue(const char* name, const char* value);

    /// @return all fields that are set, valid as long as the store, and following its changes.
    const Fields& fields() const noexcept { return fields_; }

private:
    Fields fields_;
};
