/// Reads the files in vectors/, which hold tests as data.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/json.h"

/// The names of the files in the folder, sorted, without ".json".
inline std::vector<std::string> vector_files(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& file :
         std::filesystem::directory_iterator(CSI_RECEIVER_VECTORS "/" + folder)) {
        if (file.is_regular_file()) {
            names.push_back(file.path().stem());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

inline std::string read_file(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/// The file in vectors/, with the path of a scratch folder for DIR.
inline json::document read_vector(const std::string& name, const std::string& directory = "DIR") {
    const std::string text = read_file(CSI_RECEIVER_VECTORS "/" + name + ".json");
    json::document vector = json::parse(std::regex_replace(text, std::regex("DIR"), directory));
    EXPECT_TRUE(vector.IsObject() && !vector.ObjectEmpty()) << name;
    return vector;
}

/// A string stands for itself, so that invalid JSON can be written; anything else stands for its
/// compact text.
inline std::string wire_text(const json::value& written) {
    return written.IsString() ? std::string(json::text_of(written)) : json::write(written);
}

/// The names of the cases in the file.
inline std::vector<std::string> vector_cases(const std::string& file) {
    std::vector<std::string> names;
    const json::document cases = read_vector(file);
    for (const auto& one : cases.GetObject()) {
        names.push_back(wire_text(one.name));
    }
    return names;
}

/// An object stands for its only member: the name, a blank and the value.
inline std::string named_text(const json::value& written) {
    if (!written.IsObject()) {
        return wire_text(written);
    }
    const auto member = written.MemberBegin();
    return wire_text(member->name) + " " + wire_text(member->value);
}

/// Calls the function with each element of the member, if there is one.
template<class function>
void for_each(const json::value& object, const char* member, function call) {
    if (const json::value* const list = json::find(object, member)) {
        for (const json::value& element : list->GetArray()) {
            call(element);
        }
    }
}

/// Calls the function with the name and the value of each member of the member, if there is one.
template<class function>
void for_each_member(const json::value& object, const char* member, function call) {
    if (const json::value* const found = json::find(object, member)) {
        for (const auto& one : found->GetObject()) {
            call(one.name.GetString(), one.value);
        }
    }
}

/// Calls the function with each case in the file: an object whose members are named cases.
template<class function>
void for_each_case(const std::string& file, function call, const std::string& directory = "DIR") {
    const json::document cases = read_vector(file, directory);
    for (const auto& one : cases.GetObject()) {
        SCOPED_TRACE(wire_text(one.name));
        call(one.value);
    }
}
