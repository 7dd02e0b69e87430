#pragma once

#include "Output.h"
#include "Values.h"

#include <CLI/CLI.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kiv::ctl {

// The names of the records that the library's functions return.
inline constexpr const char* kSpeakerRecord = "speaker";
inline constexpr const char* kListRecord = "list";
inline constexpr const char* kNodeRecord = "node";

// The name of the event by which the server reports volumes.
inline constexpr const char* kVolumeEvent = "volume";

// Knows where the fields of the server's records stand. docs/layouts.md describes the file.
class Layout {
public:
    struct Field {
        std::string name;
        size_t offset = 0;
        size_t size = 0;
        std::string type;
        std::string record; // of records
        std::string filled; // likewise
    };

    struct Record {
        size_t size = 0;
        std::vector<Field> fields;
    };

    struct Event {
        std::string name;
        std::string record;
    };

    // Without a record: nothing is known.
    Layout() = default;

    // Throws BadArguments.
    explicit Layout(const std::string& path);

    bool Knows(const std::string& record) const { return records_.contains(record); }

    // Null if nothing is known about the event.
    const Event* FindEvent(int id) const;

    // Tells whether an event of that name is in the file.
    bool HasEvent(const std::string& name) const;

    // An object for each whole record in the bytes. The record is one that is known.
    Json Decode(const std::string& record, Bytes bytes) const;

private:
    Json DecodeOne(const Record& record, Bytes bytes) const;
    Json DecodeField(const Record& record, const Field& field, Bytes bytes) const;

    std::map<std::string, Record> records_;
    std::map<uint32_t, Event> events_;
};

// The option that names the file. Without it, the environment variable KIV_LAYOUT does.
void AddLayout(CLI::App& app, std::string& path);

// The layout that the option or the environment names. Throws BadArguments.
Layout LayoutOf(const std::string& path);

// A table of decoded records, of which there has to be one, with a column for each field. Records that have records
// within are tables of their own.
std::string RecordsText(const Json& records);

// Decoded records in one line.
std::string RecordsLine(const Json& records);

} // namespace kiv::ctl
