#include "store/folder/IndexFile.h"

#include "store/io/ByteIo.h"
#include "store/io/Crc32c.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace VelBrx {

using nlohmann::json;

namespace {

constexpr uint8_t kMagic[8] = {'b', 'r', 'x', 'i', 'n', 'd', 'e', 'x'};
constexpr uint32_t kVersion = 1;
constexpr size_t kChecksum = sizeof(uint32_t);

/// The counts that are not 0, as pairs of place and count.
template <class Counts>
json sparse(const Counts& counts)
{
    json pairs = json::array();
    for (size_t place = 0; place < counts.size(); ++place)
        if (counts[place] > 0) pairs.push_back({place, counts[place]});
    return pairs;
}

template <class Counts>
void fill(Counts& counts, const json& pairs)
{
    for (const json& pair : pairs)
        counts.at(pair.at(0).get<size_t>()) = pair.at(1).get<uint64_t>();
}

json rangeJson(const AttributeRange& range)
{
    return {range.min, range.max, range.low, range.high};
}

AttributeRange rangeOf(const json& value)
{
    const auto numbers = value.get<std::array<double, 4>>();
    return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

json statisticsJson(const StoreStatistics& statistics)
{
    return {{"elevation", rangeJson(statistics.elevation)},
            {"intensity", rangeJson(statistics.intensity)},
            {"time", rangeJson(statistics.gpsTime)},
            {"maxColor", statistics.maxColor},
            {"classes", sparse(statistics.pointsByClass)},
            {"returns", sparse(statistics.pointsByReturn)},
            {"numbersOfReturns", sparse(statistics.pointsByNumberOfReturns)},
            {"sources", statistics.pointSources}};
}

StoreStatistics statisticsOf(const json& value)
{
    StoreStatistics statistics;
    statistics.elevation = rangeOf(value.at("elevation"));
    statistics.intensity = rangeOf(value.at("intensity"));
    statistics.gpsTime = rangeOf(value.at("time"));
    value.at("maxColor").get_to(statistics.maxColor);
    fill(statistics.pointsByClass, value.at("classes"));
    fill(statistics.pointsByReturn, value.at("returns"));
    fill(statistics.pointsByNumberOfReturns, value.at("numbersOfReturns"));
    value.at("sources").get_to(statistics.pointSources);
    return statistics;
}

json boxJson(const GroundBox& box)
{
    return {box.min[0], box.min[1], box.max[0], box.max[1]};
}

GroundBox boxOf(const json& value)
{
    const auto numbers = value.get<std::array<double, 4>>();
    return {{numbers[0], numbers[1]}, {numbers[2], numbers[3]}};
}

json stampJson(const IndexedStore::Stamp& stamp)
{
    return {stamp.bytes, stamp.modified};
}

IndexedStore::Stamp stampOf(const json& value)
{
    return {value.at(0).get<uint64_t>(), value.at(1).get<int64_t>()};
}

json storeJson(const IndexedStore& store)
{
    return {{"name", store.name},
            {"file", stampJson(store.file)},
            {"journal", stampJson(store.journal)},
            {"bytes", store.bytes},
            {"points", store.points},
            {"min", store.min},
            {"max", store.max},
            {"scale", store.scale},
            {"offset", store.offset},
            {"system", store.system},
            {"statistics", statisticsJson(store.statistics)},
            {"bulk", boxJson(store.bulk)},
            {"edits", store.edits},
            {"unsavedEdits", store.unsavedEdits}};
}

IndexedStore storeOf(const json& value)
{
    IndexedStore store;
    value.at("name").get_to(store.name);
    store.file = stampOf(value.at("file"));
    store.journal = stampOf(value.at("journal"));
    value.at("bytes").get_to(store.bytes);
    value.at("points").get_to(store.points);
    value.at("min").get_to(store.min);
    value.at("max").get_to(store.max);
    value.at("scale").get_to(store.scale);
    value.at("offset").get_to(store.offset);
    value.at("system").get_to(store.system);
    store.statistics = statisticsOf(value.at("statistics"));
    if (value.contains("bulk"))
        store.bulk = boxOf(value.at("bulk"));
    else
        store.file = {}; // written before it was kept
    value.at("edits").get_to(store.edits);
    value.at("unsavedEdits").get_to(store.unsavedEdits);
    return store;
}

json systemJson(const ProjectionRecords& system)
{
    return {{"wkt", system.wkt},
            {"geoKeys", system.geoKeys},
            {"geoDoubles", system.geoDoubles},
            {"geoTexts", system.geoTexts}};
}

ProjectionRecords systemOf(const json& value)
{
    ProjectionRecords system;
    value.at("wkt").get_to(system.wkt);
    value.at("geoKeys").get_to(system.geoKeys);
    value.at("geoDoubles").get_to(system.geoDoubles);
    value.at("geoTexts").get_to(system.geoTexts);
    return system;
}

template <class Number>
void append(std::vector<uint8_t>& bytes, Number number)
{
    bytes.resize(bytes.size() + sizeof number);
    storeLe(bytes.data() + bytes.size() - sizeof number, number);
}

void append(std::vector<uint8_t>& bytes, const json& record)
{
    const std::vector<uint8_t> packed = json::to_cbor(record);
    append(bytes, static_cast<uint32_t>(packed.size()));
    bytes.insert(bytes.end(), packed.begin(), packed.end());
}

/// Takes records from the front of some bytes; throws where there is none.
class Records
{
public:
    Records(const uint8_t* first, const uint8_t* end) : _next(first), _end(end) {}

    json take()
    {
        const size_t size = left() < sizeof(uint32_t) ? left() : loadLe<uint32_t>(_next);
        if (left() < sizeof(uint32_t) || left() - sizeof(uint32_t) < size)
            throw std::out_of_range("a record goes beyond its end");
        const uint8_t* const record = _next + sizeof(uint32_t);
        _next = record + size;
        return json::from_cbor(record, _next);
    }

    bool isEmpty() const { return _next == _end; }

private:
    size_t left() const { return static_cast<size_t>(_end - _next); }

    const uint8_t* _next;
    const uint8_t* _end;
};

FolderIndex decode(Records records)
{
    FolderIndex index;
    const json counts = records.take();
    const auto systems = counts.at("systems").get<size_t>();
    const auto stores = counts.at("stores").get<size_t>();
    while (index.systems.size() < systems)
        index.systems.push_back(systemOf(records.take()));
    while (index.stores.size() < stores) {
        index.stores.push_back(storeOf(records.take()));
        if (index.stores.back().system >= systems) throw std::out_of_range("a system is missing");
    }
    if (!records.isEmpty()) throw std::out_of_range("there is more than its head tells");
    return index;
}

} // namespace

std::vector<uint8_t> encodeIndexFile(const FolderIndex& index)
{
    std::vector<uint8_t> bytes(std::begin(kMagic), std::end(kMagic));
    append(bytes, kVersion);
    append(bytes, json{{"systems", index.systems.size()}, {"stores", index.stores.size()}});
    for (const ProjectionRecords& system : index.systems)
        append(bytes, systemJson(system));
    for (const IndexedStore& store : index.stores)
        append(bytes, storeJson(store));
    append(bytes, crc32c(bytes.data(), bytes.size()));
    return bytes;
}

Status decodeIndexFile(const std::vector<uint8_t>& bytes, FolderIndex& index)
{
    constexpr size_t kHead = sizeof kMagic + sizeof kVersion;
    if (bytes.size() < kHead + kChecksum || !std::equal(std::begin(kMagic), std::end(kMagic), bytes.begin()))
        return Status::failure("is no index of a folder of stores");
    if (const auto version = loadLe<uint32_t>(bytes.data() + sizeof kMagic); version != kVersion)
        return Status::failure("has version " + std::to_string(version) +
                               ", which this program does not know");
    const size_t end = bytes.size() - kChecksum;
    if (crc32c(bytes.data(), end) != loadLe<uint32_t>(bytes.data() + end))
        return Status::failure("is damaged", Status::Kind::DAMAGED);
    try {
        index = decode(Records(bytes.data() + kHead, bytes.data() + end));
    } catch (const std::exception& error) { // of the records, or of what they hold
        return Status::failure("is damaged: " + std::string(error.what()), Status::Kind::DAMAGED);
    }
    return {};
}

} // namespace VelBrx
