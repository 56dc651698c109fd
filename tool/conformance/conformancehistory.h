// SPDX-License-Identifier: BSD-3-Clause
// What earlier rules of the same run have written, rule by rule.
#pragma once

#include "tool/conformance/conformancenames.h"
#include "tool/rules/known.h"

#include <map>
#include <string>
#include <vector>

namespace kxtool {

class History {
public:
    /// A rule, and what was known of its value when it was applied.
    struct Source {
        std::size_t moment; ///< its number in the run
        std::string place;  ///< "pre.map:12"
        const Expression* expression;
        Known known;
    };
    using Sources = std::vector<Source>;

    /// @param moment the number of the file's first rule: plain variables from before are gone.
    void beginFile(std::size_t moment) { fileBegins_.push_back(moment); }
    void addElement(const ElementPath& path, const Source& source)
    {
        elements_[{path[0], path[1]}].push_back({path, source});
    }
    void addVariable(const std::string& name, const Source& source) { variables_[name].push_back(source); }
    void addField(const std::string& name, const Source& source) { fields_[name].push_back(source); }

    /// @return the rules that wrote a variable before a moment, as far as they can matter then.
    std::vector<const Source*> variable(const std::string& name, std::size_t moment) const;
    /// @return the one of them that sets it, whatever the dataset; null where more can, or none does.
    const Source* onlySourceOf(const std::string& name, std::size_t moment) const;
    /// @return the rule that a custom field has its value from; null for none.
    const Source* field(const std::string& name, std::size_t moment) const;

    /// @return whether a rule from that moment on wrote the element, or something in it or around it.
    bool isWrittenSince(const ElementPath& path, std::size_t moment) const;
    /// @return behind an element's name, which of its states is meant: empty for the present one.
    std::string stateOf(const ElementPath& path, std::size_t moment) const;

private:
    std::map<std::pair<int, int>, std::vector<std::pair<ElementPath, Source>>> elements_; // by the dataset's own tag
    std::map<std::string, Sources> variables_, fields_;
    std::vector<std::size_t> fileBegins_;
};

} // namespace kxtool
