// SPDX-License-Identifier: MIT
// JSON, which is UTF-8, of paths, which are bytes. A member whose bytes are no UTF-8 has U+FFFD in
// their place, and beside it stands the whole of it in hexadecimal, as the member NAME_hex.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "tools/output.hpp"

namespace tool {

using Json = nlohmann::ordered_json;

void put(Json &object, const std::string &name, const std::string &bytes);

// An array of objects, their members named as the columns.
Json toJson(const Rows &rows);

// Writes value to standard output, indented.
void print(const Json &value);

// An array on standard output, written as its elements come.
class JsonArray {
public:
    void add(const Json &element);
    // To be called after the last element.
    void finish() const;

private:
    bool isEmpty_ = true;
};

}  // namespace tool
