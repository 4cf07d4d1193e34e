// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <iostream>
#include <streambuf>
#include <string>

namespace sim {

// As long as it lives, standard error shows blanks for control characters: messages repeat names
// and values that may hold any, and a terminal would obey them.
class PlainErrors : private std::streambuf {
  public:
    PlainErrors() : out_(std::cerr.rdbuf(this)) {}
    ~PlainErrors() override { std::cerr.rdbuf(out_); }
    PlainErrors(const PlainErrors&) = delete;
    PlainErrors& operator=(const PlainErrors&) = delete;

  private:
    static char plain(char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < ' ' && c != '\n') || byte == 0x7f ? ' ' : c;
    }

    std::streamsize xsputn(const char* text, std::streamsize length) override {
        std::string copy(text, static_cast<size_t>(length));
        std::transform(copy.begin(), copy.end(), copy.begin(), plain);
        return out_->sputn(copy.data(), length);
    }
    int_type overflow(int_type c) override {
        if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
        return out_->sputc(plain(traits_type::to_char_type(c)));
    }
    int sync() override { return out_->pubsync(); }

    std::streambuf* out_;
};

}  // namespace sim
