// SPDX-License-Identifier: MIT
#include "tools/json.hpp"

#include <cstdio>

namespace tool {
namespace {

// The library's own judgement, so that a member and its text always agree.
bool isUtf8(const std::string &bytes) {
    try {
        (void)Json(bytes).dump();
        return true;
    } catch (const Json::type_error &) {
        return false;
    }
}

std::string hexadecimal(const std::string &bytes) {
    constexpr const char *kDigits = "0123456789abcdef";
    std::string digits;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        digits += kDigits[value >> 4U];
        digits += kDigits[value & 0xFU];
    }
    return digits;
}

// In ASCII, so that a terminal gets no control character, of one byte or two.
std::string dump(const Json &value, int indent) {
    return value.dump(indent, ' ', true, Json::error_handler_t::replace);
}

}  // namespace

void put(Json &object, const std::string &name, const std::string &bytes) {
    object[name] = bytes;
    if (!isUtf8(bytes)) object[name + "_hex"] = hexadecimal(bytes);
}

Json toJson(const Rows &rows) {
    Json array = Json::array();
    for (const auto &cells : rows.cells) {
        Json &object = array.emplace_back(Json::object());
        for (std::size_t i = 0; i < cells.size(); ++i) put(object, rows.names[i], cells[i]);
    }
    return array;
}

void print(const Json &value) {
    (void)std::printf("%s\n", dump(value, 2).c_str());
}

void JsonArray::add(const Json &element) {
    (void)std::printf("%s  %s", isEmpty_ ? "[\n" : ",\n", dump(element, -1).c_str());
    isEmpty_ = false;
}

void JsonArray::finish() const {
    (void)std::fputs(isEmpty_ ? "[]\n" : "\n]\n", stdout);
}

}  // namespace tool
