// SPDX-License-Identifier: Apache-2.0
#include "tests/marlo_fw/strict_xml.h"

#include <algorithm>

namespace marlo_fw::test {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\v\f";
constexpr std::string_view kForeign = "x";  // an element that means something to somebody else
constexpr int kDeepest = 20;

class Reader {
  public:
    explicit Reader(std::string_view text) : rest_(text) {}

    Element document() {
        for (; take("<?"); pass_blanks()) pass("?>");
        pass_blanks_and_comments();
        need("<");
        Element root = element(1);
        pass_blanks_and_comments();
        if (!rest_.empty()) throw NotStrict("something behind the root");
        return root;
    }

  private:
    bool take(std::string_view what) {
        const bool is_there = rest_.starts_with(what);
        if (is_there) rest_.remove_prefix(what.size());
        return is_there;
    }

    void need(std::string_view what) {
        if (!take(what)) throw NotStrict("no " + std::string(what));
    }

    void pass(std::string_view end) {
        const size_t at = rest_.find(end);
        if (at == rest_.npos) throw NotStrict("no end " + std::string(end));
        rest_.remove_prefix(at + end.size());
    }

    void pass_blanks() {
        rest_.remove_prefix(std::min(rest_.find_first_not_of(kBlanks), rest_.size()));
    }

    void pass_blanks_and_comments() {
        for (pass_blanks(); take("<!--"); pass_blanks()) pass("-->");
    }

    std::string name() {
        pass_blanks();
        const auto is_end = [](unsigned char byte) {
            return !(std::isalnum(byte) != 0 || byte == '_' || byte == '-' || byte == '.');
        };
        const auto end = std::find_if(rest_.begin(), rest_.end(), is_end);
        std::string taken(rest_.begin(), end);
        if (taken.empty() || std::isdigit(static_cast<unsigned char>(taken[0])) != 0) {
            throw NotStrict("no name");
        }
        rest_.remove_prefix(taken.size());
        return taken;
    }

    // Behind its "<". Attributes are nothing that a table has.
    Element element(int depth) {
        if (depth > kDeepest) throw NotStrict("too deep");
        Element result;
        result.name = name();
        pass_blanks();
        if (take("/>")) return result;
        need(">");
        for (bool is_open = true; is_open;) {
            if (take("<!--")) {
                pass("-->");
                result.text += kBlanks.front();  // a value that a comment cuts is none
            } else if (take("<")) {
                pass_blanks();
                is_open = !take("/");
                if (is_open) result.children.push_back(element(depth + 1));
            } else {
                result.text += character();
            }
        }
        if (name() != result.name) throw NotStrict("another end of " + result.name);
        pass_blanks();
        need(">");
        if (!result.children.empty() &&
            result.text.find_first_not_of(kBlanks) != std::string::npos) {
            throw NotStrict("text beside the children of " + result.name);
        }
        return result;
    }

    char character() {
        if (rest_.empty()) throw NotStrict("the end is missing");
        constexpr std::pair<std::string_view, char> kEntities[] = {
            {"&amp;", '&'},  {"&lt;", '<'},    {"&gt;", '>'},
            {"&quot;", '"'}, {"&apos;", '\''}, {"&#49;", '1'}};
        for (const auto& [entity, meaning] : kEntities) {
            if (take(entity)) return meaning;
        }
        const char taken = rest_[0];
        if (taken == '&' || taken == '\0') throw NotStrict("no character");
        rest_.remove_prefix(1);
        return taken;
    }

    std::string_view rest_;
};

}  // namespace

const Element* Element::only(std::string_view child) const {
    const Element* found = nullptr;
    for (const Element& candidate : children) {
        if (candidate.name != child) continue;
        if (found != nullptr) throw NotStrict("two of " + std::string(child));
        found = &candidate;
    }
    return found;
}

void Element::has_only(const std::vector<std::string_view>& names) const {
    for (const Element& child : children) {
        const bool is_foreign = child.name == kForeign && child.children.empty();
        if (!is_foreign && std::find(names.begin(), names.end(), child.name) == names.end()) {
            throw NotStrict("what is " + child.name);
        }
    }
}

Element read_xml(std::string_view text) {
    return Reader(text).document();
}

}  // namespace marlo_fw::test
