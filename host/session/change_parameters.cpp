#include "host/session/change_parameters.h"

#include <fmt/format.h>

#include <cerrno>
#include <charconv>
#include <nlohmann/json.hpp>

#include "common/property_list/property_list.h"
#include "host/scan/file_names.h"
#include "host/scan/small_file.h"

namespace host {

namespace {

using nlohmann::json;
using platform::Dictionary;
using platform::Error;
using platform::OptionalError;
using platform::Value;

constexpr char StreamKey[] = "Stream";
constexpr char DataKey[] = "$data";
constexpr char DateKey[] = "$date";
constexpr std::size_t LargestFile = 16u << 20;
// As deep as a property list may be.
constexpr int DeepestNesting = 64;

json jsonOf(const Value& value) {
    switch (value.type()) {
        case Value::Type::Boolean:
            return value.boolValue();
        case Value::Type::Signed:
            return value.int64Value();
        case Value::Type::Unsigned:
            return value.unsignedValue();
        case Value::Type::Double:
            return value.doubleValue();
        case Value::Type::String:
            return *value.string();
        case Value::Type::Data:
            return json::object({{DataKey, common::hexText(*value.data())}});
        case Value::Type::Date:
            return json::object({{DateKey, value.date()->secondsSince1970}});
        case Value::Type::Array: {
            json array = json::array();
            for (const Value& element : *value.array())
                array.push_back(jsonOf(element));
            return array;
        }
        case Value::Type::Dictionary: {
            json object = json::object();
            for (const auto& [key, element] : *value.dictionary())
                object[key] = jsonOf(element);
            return object;
        }
        case Value::Type::Null:
            break;
    }
    return nullptr;
}

std::optional<platform::Data> bytesOfHex(const json& text) {
    if (!text.is_string())
        return std::nullopt;
    const auto& digits = text.get_ref<const std::string&>();
    platform::Data bytes(digits.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char* begin = digits.data() + 2 * i;
        const auto read = std::from_chars(begin, begin + 2, bytes[i], 16);
        if (read.ec != std::errc() || read.ptr != begin + 2)
            return std::nullopt;
    }
    return digits.size() % 2 == 0 ? std::optional(std::move(bytes)) : std::nullopt;
}

std::optional<Value> valueOf(const json& value, int depth);

std::optional<Value> objectValue(const json& object, int depth) {
    if (object.size() == 1 && object.contains(DataKey)) {
        auto bytes = bytesOfHex(object[DataKey]);
        return bytes ? std::optional<Value>(std::move(*bytes)) : std::nullopt;
    }
    if (object.size() == 1 && object.contains(DateKey) && object[DateKey].is_number())
        return Value(platform::Date{object[DateKey].get<double>()});
    Dictionary dictionary;
    for (const auto& [key, element] : object.items()) {
        auto value = valueOf(element, depth + 1);
        if (!value)
            return std::nullopt;
        dictionary.emplace(key, std::move(*value));
    }
    return Value(std::move(dictionary));
}

std::optional<Value> arrayValue(const json& array, int depth) {
    platform::Array values;
    for (const json& element : array) {
        auto value = valueOf(element, depth + 1);
        if (!value)
            return std::nullopt;
        values.push_back(std::move(*value));
    }
    return Value(std::move(values));
}

// Nothing for null, which property lists lack, and beyond the depth.
std::optional<Value> valueOf(const json& value, int depth) {
    if (depth > DeepestNesting)
        return std::nullopt;
    switch (value.type()) {
        case json::value_t::boolean:
            return Value(value.get<bool>());
        case json::value_t::number_integer:
            return Value(value.get<std::int64_t>());
        case json::value_t::number_unsigned:
            return Value(value.get<std::uint64_t>());
        case json::value_t::number_float:
            return Value(value.get<double>());
        case json::value_t::string:
            return Value(value.get_ref<const std::string&>());
        case json::value_t::array:
            return arrayValue(value, depth);
        case json::value_t::object:
            return objectValue(value, depth);
        default:
            return std::nullopt;
    }
}

std::optional<std::int64_t> revisionOf(const json& text) {
    if (!text.is_string())
        return std::nullopt;
    const auto& digits = text.get_ref<const std::string&>();
    std::int64_t revision = 0;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), revision);
    if (read.ec != std::errc() || read.ptr != digits.data() + digits.size())
        return std::nullopt;
    return revision;
}

std::optional<StreamFacts> factsOf(const json& object) {
    if (!object.is_object() || !object.contains("size") || !object.contains("content_hash") ||
        !object.contains("revision") || !object["size"].is_number_unsigned())
        return std::nullopt;
    StreamFacts facts;
    facts.size = object["size"].get<std::uint64_t>();
    const auto hash = bytesOfHex(object["content_hash"]);
    const auto revision = revisionOf(object["revision"]);
    if (!hash || hash->size() != facts.hash.size() || !revision)
        return std::nullopt;
    std::copy(hash->begin(), hash->end(), facts.hash.begin());
    facts.revision = *revision;
    return facts;
}

Error notUnderstood() {
    return Error(platform::POSIXErrorDomain, EBADMSG, "the parameters are not understood");
}

}  // namespace

std::uint64_t ChangeParameters::playlistBytes() const {
    const auto found = values.find(PlaylistLengthKey);
    return found == values.end() ? 0 : found->second.unsignedValue();
}

std::uint64_t ChangeParameters::items() const {
    const auto found = values.find(ItemCountKey);
    return found == values.end() ? 0 : found->second.unsignedValue();
}

std::string jsonOfParameters(const ChangeParameters& parameters) {
    json object = jsonOf(Value(parameters.values));
    if (parameters.stream)
        object[StreamKey] = {{"size", parameters.stream->size},
                             {"content_hash", common::hexText(parameters.stream->hash)},
                             {"revision", std::to_string(parameters.stream->revision)}};
    return object.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

std::optional<ChangeParameters> parametersOfJson(std::string_view text, OptionalError& error) {
    json object = json::parse(text, nullptr, false);
    error = notUnderstood();
    if (!object.is_object())
        return std::nullopt;
    ChangeParameters parameters;
    if (object.contains(StreamKey)) {
        parameters.stream = factsOf(object[StreamKey]);
        if (!parameters.stream)
            return std::nullopt;
        object.erase(StreamKey);
    }
    const auto values = valueOf(object, 0);
    if (!values || !values->isDictionary())
        return std::nullopt;
    parameters.values = *values->dictionary();
    error.reset();
    return parameters;
}

std::optional<Dictionary> dictionaryOfPropertyList(std::string_view bytes, OptionalError& error) {
    const auto value = common::parsePropertyList(
        std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), &error);
    if (value && value->isDictionary())
        return *value->dictionary();
    if (value)
        error = notUnderstood();
    return std::nullopt;
}

std::optional<std::string> propertyListOfDictionary(const Dictionary& values,
                                                    OptionalError& error) {
    const auto bytes =
        common::serializePropertyList(Value(values), platform::PropertyListFormat::Binary, &error);
    if (!bytes)
        return std::nullopt;
    return std::string(bytes->begin(), bytes->end());
}

std::string parametersPath(const std::string& streamPath) {
    return streamPath + ".json";
}

std::optional<ChangeParameters> readParameters(const std::string& streamPath,
                                               OptionalError& error) {
    const std::string path = parametersPath(streamPath);
    std::string text;
    bool missing = false;
    const std::string reason = readSmallFile(path, LargestFile, text, &missing);
    if (!reason.empty()) {
        error = Error(platform::POSIXErrorDomain, missing ? ENOENT : EIO,
                      fmt::format("{}: {}", displayText(path), reason));
        return std::nullopt;
    }
    auto parameters = parametersOfJson(text, error);
    if (error)
        error = Error(error->domain, error->code,
                      fmt::format("{}: {}", displayText(path), error->text()));
    return parameters;
}

}  // namespace host
