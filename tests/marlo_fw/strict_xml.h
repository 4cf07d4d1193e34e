// SPDX-License-Identifier: Apache-2.0
// XML read by somebody who forgives nothing, without the daemon's library.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace marlo_fw::test {

struct NotStrict : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Element {
    std::string name;
    std::string text;  // of an element without children, entities resolved
    std::vector<Element> children;

    // The only child of that name; null where there is none.
    const Element* only(std::string_view child) const;
    // Throws where there is another child.
    void has_only(const std::vector<std::string_view>& names) const;
};

// The document's only element. Throws NotStrict.
Element read_xml(std::string_view text);

}  // namespace marlo_fw::test
