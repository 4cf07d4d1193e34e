// SPDX-License-Identifier: Apache-2.0
#include "bench/figure.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace bench {
namespace {

// Three significant digits and more, never an exponent.
std::string number(double value) {
    const int digits = value >= 1000 ? 0 : value >= 100 ? 1 : value >= 10 ? 2 : 3;
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f", digits, value);
    return text;
}

std::string verdict(const Figure& figure) {
    if (!figure.goal) {
        return "";
    }
    const bool is_lower_bound = figure.goal->side == Goal::Side::kAtLeast;
    return (is_lower_bound ? ">= " : "<= ") + number(figure.goal->limit) +
           (is_met(figure) ? "  met" : "  MISSED");
}

std::string row(const Figure& figure) {
    const std::string ours = number(figure.value) + " " + figure.unit;
    std::string theirs;
    std::string ratio;
    if (figure.reference) {
        theirs = figure.reference->name + " " + number(figure.reference->value);
        ratio = number(figure.reference->ratio);
    }
    char text[256];
    std::snprintf(text, sizeof(text), "  %-48s %18s   %-26s %7s   %s", figure.name.c_str(),
                  ours.c_str(), theirs.c_str(), ratio.c_str(), verdict(figure).c_str());
    std::string line = text;
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

}  // namespace

double judged_value(const Figure& figure) {
    return figure.reference ? figure.reference->ratio : figure.value;
}

bool is_met(const Figure& figure) {
    if (!figure.goal) {
        return true;
    }
    const double value = judged_value(figure);
    return figure.goal->side == Goal::Side::kAtLeast ? value >= figure.goal->limit
                                                     : value <= figure.goal->limit;
}

std::string table_of(const Figures& figures) {
    std::string text;
    std::string group;
    for (const Figure& figure : figures) {
        if (figure.group != group) {
            group = figure.group;
            text += group + "\n";
        }
        text += row(figure);
    }
    return text;
}

std::string json_of(const Figures& figures) {
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const Figure& figure : figures) {
        nlohmann::ordered_json one = {{"group", figure.group},
                                      {"name", figure.name},
                                      {"unit", figure.unit},
                                      {"value", figure.value}};
        if (figure.reference) {
            one["reference"] = {{"name", figure.reference->name},
                                {"value", figure.reference->value},
                                {"ratio", figure.reference->ratio}};
        }
        if (figure.goal) {
            const bool is_lower_bound = figure.goal->side == Goal::Side::kAtLeast;
            one["goal"] = {{is_lower_bound ? "at_least" : "at_most", figure.goal->limit},
                           {"met", is_met(figure)}};
        }
        all.push_back(std::move(one));
    }
    return all.dump(2) + "\n";
}

}  // namespace bench
