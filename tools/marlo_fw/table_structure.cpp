// SPDX-License-Identifier: Apache-2.0
#include "tools/marlo_fw/table_structure.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <vector>

#include "tools/marlo_fw/text.h"

namespace marlo_fw {
namespace {

using tinyxml2::XMLElement;
using tinyxml2::XMLNode;

constexpr std::string_view kBlanks = " \t\r\n";

std::string lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
    return result;
}

// How many characters must be put in, left out or replaced to make one of the other.
size_t edits(const std::string& one, const std::string& other) {
    std::vector<size_t> row(other.size() + 1);
    for (size_t column = 0; column < row.size(); ++column) row[column] = column;
    for (size_t line = 1; line <= one.size(); ++line) {
        size_t diagonal = row[0];
        row[0] = line;
        for (size_t column = 1; column < row.size(); ++column) {
            const size_t replaced = diagonal + (one[line - 1] == other[column - 1] ? 0 : 1);
            diagonal = row[column];
            row[column] = std::min({replaced, row[column] + 1, row[column - 1] + 1});
        }
    }
    return row.back();
}

// The name that was meant, where one is close; else empty.
std::string_view meant(std::string_view name, std::span<const std::string_view> known) {
    for (const std::string_view candidate : known) {
        const size_t near_enough = std::max<size_t>(1, candidate.size() / 4);
        if (name.size() <= candidate.size() + near_enough &&
            edits(lower(name), lower(candidate)) <= near_enough) {
            return candidate;
        }
    }
    return {};
}

std::string parent_name(const XMLElement& child) {
    const XMLElement* parent = child.Parent()->ToElement();
    return parent == nullptr ? "" : printable(parent->Name());
}

// Names of XML itself say nothing of a partition.
void check_attributes(const XMLElement& element, Findings& findings) {
    for (const tinyxml2::XMLAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
        if (std::string_view(attribute->Name()).starts_with("xml")) continue;
        findings.add({area_of(element),
                      "attribute-overlooked",
                      place_of(element),
                      printable(attribute->Name()) + "=" + in_quotes(attribute->Value()),
                      "the daemon overlooks it: it reads elements alone",
                      {}});
    }
}

void check_known(const XMLElement& child, int count, Findings& findings) {
    if (count == 1) check_attributes(child, findings);
    if (count != 2) return;
    findings.add({area_of(child),
                  "element-repeated",
                  place_of(child),
                  "a second one",
                  "the daemon reads the first <" + std::string(child.Name()) + "> only",
                  {}});
}

// Names that mean something elsewhere in a table.
constexpr std::string_view kAllNames[] = {"mbr",
                                          "Partition_1_SBL_Offset",
                                          "Bank_1",
                                          "Partition_table",
                                          "no_of_partitions",
                                          "Partition",
                                          "img_id",
                                          "Offset",
                                          "Partition_Name",
                                          "Image_Path",
                                          "size",
                                          "HostSpecificInfo",
                                          "PartType"};

bool is_known_somewhere(const XMLElement& element) {
    return std::find(std::begin(kAllNames), std::end(kAllNames), element.Name()) !=
           std::end(kAllNames);
}

void add_misplaced(const XMLElement& element, Findings& findings) {
    findings.add({area_of(element),
                  "element-misplaced",
                  place_of(element),
                  "in <" + parent_name(element) + ">",
                  "the daemon overlooks it: it looks for it elsewhere",
                  {}});
}

// What the daemon would read if it stood outside an element that it does not know.
class Hidden : public tinyxml2::XMLVisitor {
  public:
    explicit Hidden(Findings& findings) : findings_(findings) {}

    bool VisitEnter(const XMLElement& element, const tinyxml2::XMLAttribute*) override {
        const bool is_hidden = is_known_somewhere(element);
        if (is_hidden) add_misplaced(element, findings_);
        return !is_hidden;
    }

  private:
    Findings& findings_;
};

using Names = std::set<std::string_view>;

Names names_in(const XMLNode& parent) {
    Names names;
    for (const XMLElement* child = parent.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        names.insert(child->Name());
    }
    return names;
}

void check_unknown(const XMLElement& child, std::span<const std::string_view> known,
                   std::string_view list, const Names& present, Findings& findings) {
    if (is_known_somewhere(child)) return add_misplaced(child, findings);
    // Beside the element that it looks like, it is one that somebody else reads.
    std::string_view near = meant(child.Name(), known);
    if (present.contains(near)) near = {};
    if (near.empty() && !list.empty()) near = meant(child.Name(), {&list, 1});
    if (!near.empty()) {
        findings.add({area_of(child),
                      "element-misspelt",
                      place_of(child),
                      in_quotes(child.Name()),
                      "the daemon overlooks it: it looks for <" + std::string(near) + ">",
                      {}});
        return;
    }
    // What else the root has, another bank perhaps, has partitions of its own.
    const XMLElement* parent = child.Parent()->ToElement();
    if (parent == nullptr || parent->Parent()->ToElement() == nullptr) return;
    Hidden hidden(findings);
    child.Accept(&hidden);
}

void add_overlooked(const XMLNode& node, const std::string& what, Findings& findings) {
    findings.add({area_of(node),
                  "text-overlooked",
                  place_of(node),
                  in_quotes(what),
                  "the daemon overlooks it",
                  {}});
}

}  // namespace

std::string place_of(const XMLNode& node) {
    const XMLElement* element = node.ToElement();
    if (element == nullptr && node.Parent() != nullptr) element = node.Parent()->ToElement();
    return std::string(kTableFile) + ":" + std::to_string(node.GetLineNum()) +
           (element == nullptr ? "" : ": <" + printable(element->Name()) + ">");
}

Area area_of(const XMLNode& node) {
    for (const XMLNode* at = &node; at != nullptr; at = at->Parent()) {
        const XMLElement* element = at->ToElement();
        const std::string_view name = element == nullptr ? "" : element->Name();
        if (name == "mbr" || name == "Partition_1_SBL_Offset") return Area::kFlashImage;
    }
    return Area::kTable;
}

void check_children(const XMLNode& parent, std::span<const std::string_view> known,
                    std::string_view list, Findings& findings) {
    const Names present = names_in(parent);
    std::map<std::string_view, int> seen;
    for (const XMLNode* node = parent.FirstChild(); node != nullptr; node = node->NextSibling()) {
        if (const XMLElement* child = node->ToElement()) {
            const std::string_view name = child->Name();
            if (std::find(known.begin(), known.end(), name) != known.end()) {
                check_known(*child, ++seen[name], findings);
            } else if (name == list) {
                check_attributes(*child, findings);
            } else {
                check_unknown(*child, known, list, present, findings);
            }
        } else if (node->ToText() != nullptr || node->ToUnknown() != nullptr) {
            const std::string_view text = node->Value();
            const bool is_document_type = node->ToUnknown() && text.starts_with("DOCTYPE");
            if (text.find_first_not_of(kBlanks) != text.npos && !is_document_type) {
                add_overlooked(*node, std::string(text), findings);
            }
        }
    }
}

std::string whole_text(const XMLElement& element, Findings& findings) {
    std::string text;
    int pieces = 0;
    for (const XMLNode* node = element.FirstChild(); node != nullptr; node = node->NextSibling()) {
        const bool is_text = node->ToText() != nullptr;
        if (is_text) text += node->Value();
        // What is not the first piece is overlooked, and so is all behind a first that is no text.
        if (pieces++ != 0 || !is_text) add_overlooked(*node, node->Value(), findings);
    }
    return text;
}

}  // namespace marlo_fw
