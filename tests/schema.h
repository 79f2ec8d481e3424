// Holds JSON against the schemas that users are given.
#pragma once

#include <algorithm>
#include <fstream>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

// The part of JSON Schema that the files in docs use.
class Schema
{
public:
    using json = nlohmann::json;

    // By the name of its file in docs.
    explicit Schema(const std::string& name)
    {
        std::ifstream file(std::string(HOLV_SOURCE_DIR "/docs/") + name);
        m_root = json::parse(file);
    }

    // What is wrong with the value, a line each.
    std::string Wrong(const json& value) const
    {
        std::string wrong;
        Check(value, m_root, "it", wrong);
        return wrong;
    }

private:
    static void Add(std::string& wrong, std::initializer_list<std::string_view> parts)
    {
        for (const std::string_view part : parts) wrong += part;
        wrong += "\n";
    }

    static bool IsOf(const json& value, const std::string& type)
    {
        return type == "integer" ? value.is_number_integer() : value.type_name() == type;
    }

    void Check(const json& value, const json& schema, const std::string& path,
               std::string& wrong) const
    {
        if (schema.contains("$ref")) {
            const auto reference = schema["$ref"].get<std::string>().substr(1);
            return Check(value, m_root.at(json::json_pointer(reference)), path, wrong);
        }
        if (schema.contains("enum")) {
            const json& known = schema["enum"];
            if (std::ranges::find(known, value) == known.end()) {
                wrong += path + " is " + value.dump() + "\n";
            }
            return;
        }
        const json types = schema["type"].is_array() ? schema["type"] : json{schema["type"]};
        if (std::ranges::none_of(types, [&](const json& type) { return IsOf(value, type); })) {
            wrong += path + " is a " + value.type_name() + "\n";
        } else if (value.is_array()) {
            for (const json& element : value) Check(element, schema["items"], path + "[]", wrong);
        } else if (value.is_object()) {
            CheckMembers(value, schema, path, wrong);
        }
    }

    void CheckMembers(const json& value, const json& schema, const std::string& path,
                      std::string& wrong) const
    {
        for (const auto& name : schema["required"]) {
            if (!value.contains(name)) Add(wrong, {path, " lacks ", name.dump()});
        }
        for (const auto& [name, member] : value.items()) {
            if (!schema["properties"].contains(name)) {
                Add(wrong, {path, " has \"", name, "\""});
            } else {
                std::string place = path;
                place.append(".").append(name);
                Check(member, schema["properties"][name], place, wrong);
            }
        }
    }

    json m_root;
};
