// SPDX-License-Identifier: Apache-2.0
#include "sim/report/report.h"

#include <ctime>
#include <nlohmann/json.hpp>
#include <string_view>

// The page's sources, as they are in this folder.
extern "C" {
extern const char sim_page_html_start[];
extern const char sim_page_html_end[];
extern const char sim_page_css_start[];
extern const char sim_page_css_end[];
extern const char sim_page_js_start[];
extern const char sim_page_js_end[];
}

namespace sim {
namespace {

constexpr std::string_view kStyleHere = "/* STYLE */";
constexpr std::string_view kDataHere = "\"DATA\"";
constexpr std::string_view kScriptHere = "/* SCRIPT */";

void put_in(std::string& page, std::string_view place, std::string_view text) {
    page.replace(page.find(place), place.size(), text);
}

std::string now_in_words() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char text[64];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts);
    return text;
}

}  // namespace

std::string script_text(const nlohmann::ordered_json& data) {
    // Other than ASCII is escaped: U+2028 and U+2029 with it. What is not UTF-8 is replaced.
    const std::string text =
        data.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
    std::string safe;
    safe.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '<':
                safe += "\\u003c";
                break;
            case '>':
                safe += "\\u003e";
                break;
            case '&':
                safe += "\\u0026";
                break;
            default:
                safe += c;
        }
    }
    return safe;
}

// From the end to the beginning, so that no text is searched for a place.
std::string report_page(const nlohmann::ordered_json& data) {
    std::string page(sim_page_html_start, sim_page_html_end);
    put_in(page, kScriptHere, {sim_page_js_start, sim_page_js_end});
    put_in(page, kDataHere, script_text(data));
    put_in(page, kStyleHere, {sim_page_css_start, sim_page_css_end});
    return page;
}

Report::Report(const std::filesystem::path& file)
    : file_("report", "--report", file), started_(now_in_words()), timeline_(data_) {}

void Report::close(const Ending& ending) {
    timeline_.close(ending.time);
    file_.write(report_page(data_.json(ending, started_)));
    file_.close();
}

}  // namespace sim
