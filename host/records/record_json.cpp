#include "host/records/record_json.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "common/hash.h"
#include "common/qorx/qorx.pb.h"

namespace host {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::Reflection;

constexpr std::size_t PieceSize = 64u << 10;

class Writer {
public:
    explicit Writer(const TextSink& sink) : _sink(sink) {}
    ~Writer() { _sink(_text); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    void raw(std::string_view text) {
        _text += text;
        if (_text.size() >= PieceSize) {
            _sink(_text);
            _text.clear();
        }
    }
    void quoted(const std::string& text) {
        raw(nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    }

private:
    const TextSink& _sink;
    std::string _text;
};

// Many readers of JSON keep 53 bits of a number.
bool isIdentifier(const FieldDescriptor& field) {
    return field.type() == FieldDescriptor::TYPE_SFIXED64 || field.name().ends_with("_id") ||
           field.name().ends_with("revision");
}

std::string enumText(const std::string& name) {
    std::string text = name;
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string bytesText(const FieldDescriptor& field, const std::string& bytes) {
    if (field.name().ends_with("path"))
        return bytes;
    return common::hexText(
        std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

void writeNumber(const FieldDescriptor& field, const std::string& digits, Writer& out) {
    if (isIdentifier(field))
        out.quoted(digits);
    else
        out.raw(digits);
}

void writeFields(const Message& message, bool first, Writer& out);

void writeSingle(const Message& message, const FieldDescriptor& field, Writer& out) {
    const Reflection& values = *message.GetReflection();
    switch (field.cpp_type()) {
        case FieldDescriptor::CPPTYPE_INT64:
            return writeNumber(field, std::to_string(values.GetInt64(message, &field)), out);
        case FieldDescriptor::CPPTYPE_UINT64:
            return writeNumber(field, std::to_string(values.GetUInt64(message, &field)), out);
        case FieldDescriptor::CPPTYPE_UINT32:
            return out.raw(std::to_string(values.GetUInt32(message, &field)));
        case FieldDescriptor::CPPTYPE_BOOL:
            return out.raw(values.GetBool(message, &field) ? "true" : "false");
        case FieldDescriptor::CPPTYPE_ENUM:
            return out.quoted(enumText(values.GetEnum(message, &field)->name()));
        case FieldDescriptor::CPPTYPE_STRING: {
            const std::string text = values.GetString(message, &field);
            return out.quoted(field.type() == FieldDescriptor::TYPE_BYTES ? bytesText(field, text)
                                                                          : text);
        }
        case FieldDescriptor::CPPTYPE_MESSAGE:
            out.raw("{");
            writeFields(values.GetMessage(message, &field), true, out);
            return out.raw("}");
        default:
            return out.raw("null");  // the records have no fields of other types
    }
}

// Only messages are repeated in records.
void writeRepeated(const Message& message, const FieldDescriptor& field, Writer& out) {
    const Reflection& values = *message.GetReflection();
    out.raw("[");
    const int count = values.FieldSize(message, &field);
    for (int i = 0; i < count; ++i) {
        out.raw(i == 0 ? "{" : ",{");
        writeFields(values.GetRepeatedMessage(message, &field, i), true, out);
        out.raw("}");
    }
    out.raw("]");
}

void writeFields(const Message& message, bool first, Writer& out) {
    std::vector<const FieldDescriptor*> fields;
    message.GetReflection()->ListFields(message, &fields);
    for (const FieldDescriptor* field : fields) {
        if (!first)
            out.raw(",");
        first = false;
        out.quoted(field->name());
        out.raw(":");
        if (field->is_repeated())
            writeRepeated(message, *field, out);
        else
            writeSingle(message, *field, out);
    }
}

// A value of 0 is not written otherwise; what was deleted is always said.
std::string_view beginningOf(const qorx::Deletion& deletion) {
    return deletion.entity() == qorx::Deletion::TRACK ? R"({"type":"deletion","entity":"track")"
                                                      : R"({"type":"deletion")";
}

void writeLine(std::string_view beginning, const Message& message, const TextSink& sink) {
    Writer out(sink);
    out.raw(beginning);
    writeFields(message, false, out);
    out.raw("}\n");
}

}  // namespace

void writeRecordJson(const qorx::Record& record, const TextSink& sink) {
    switch (record.kind_case()) {
        case qorx::Record::kTrack:
            return writeLine(R"({"type":"track")", record.track(), sink);
        case qorx::Record::kPlaylist:
            return writeLine(R"({"type":"playlist")", record.playlist(), sink);
        case qorx::Record::kDeletion:
            return writeLine(beginningOf(record.deletion()), record.deletion(), sink);
        default:
            return;  // the framing's own
    }
}

void writeHeaderJson(const qorx::Header& header, std::size_t section, const TextSink& sink) {
    writeLine(R"({"type":"header","section":)" + std::to_string(section), header, sink);
}

}  // namespace host
