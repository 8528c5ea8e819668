#include "Quil/AttrLogRecord.h"

namespace Quil {
namespace {

void write(AttrLogWriter& log, const AttrLogRecord::Bytes& bytes) {
    log.write(static_cast<std::uint32_t>(bytes.size()));
    log.writeBytes(bytes.data(), bytes.size());
}

AttrLogRecord::Bytes readBytes(AttrLogReader& log) {
    const String text = log.get<String>();  // the same form
    return {text.begin(), text.end()};
}

const Attribute& attributeOf(const Entity& entity, std::uint16_t id) {
    const auto& attributes = entity.fwkType().attributes;
    if (id == 0 || id > attributes.size()) {
        throw RangeException(cat(entity.fwkType().name, " has no attribute ", id));
    }
    return attributes[id - 1];
}

template <class F>
const F& supported(const F& function, const Attribute& attribute) {
    if (!function) throw RangeException(cat("attribute ", attribute.name, " does not take this operation"));
    return function;
}

}  // namespace

void AttrLogRecord::appendTo(Bytes& out) const {
    AttrLogWriter log;
    log.write(static_cast<std::uint16_t>(path.size()));
    for (const Step& step : path) {
        log.write(step.attribute);
        write(log, step.key);
    }
    log.write(attribute);
    log.write(static_cast<std::uint8_t>(operation));
    write(log, key);
    write(log, value);
    AttrLogWriter length;
    length.write(static_cast<std::uint32_t>(log.bytes().size()));
    out.insert(out.end(), length.bytes().begin(), length.bytes().end());
    out.insert(out.end(), log.bytes().begin(), log.bytes().end());
}

AttrLogRecord AttrLogRecord::parse(const std::uint8_t* bytes, std::size_t size) {
    AttrLogReader log(bytes, size);
    AttrLogRecord record;
    const auto steps = log.get<std::uint16_t>();
    for (std::uint16_t i = 0; i < steps; ++i) {
        Step step;
        step.attribute = log.get<std::uint16_t>();
        step.key = readBytes(log);
        record.path.push_back(std::move(step));
    }
    record.attribute = log.get<std::uint16_t>();
    const auto operation = log.get<std::uint8_t>();
    if (operation < set || operation > synchronised) throw RangeException(cat("no operation ", operation));
    record.operation = static_cast<Operation>(operation);
    record.key = readBytes(log);
    record.value = readBytes(log);
    if (!log.atEnd()) throw RangeException("bytes are left behind a record");
    return record;
}

std::optional<AttrLogRecord> AttrLogRecord::next(const Bytes& stream, std::size_t& at) {
    const std::size_t left = stream.size() - at;
    if (left < 4) return std::nullopt;
    const auto size = AttrLogReader(stream.data() + at, 4).get<std::uint32_t>();
    if (size > maxSize) throw RangeException(cat("a record of ", size, " bytes"));
    if (left - 4 < size) return std::nullopt;
    auto record = parse(stream.data() + at + 4, size);
    at += 4 + size;
    return record;
}

AttrLogRecord::Place AttrLogRecord::placeIn(Entity& root) const {
    Place place{{}, &root};
    for (const Step& step : path) {
        const Attribute& attr = attributeOf(*place.entity, step.attribute);
        AttrLogReader keyLog(step.key);
        place.holder = supported(attr.child, attr)(*place.entity, keyLog);
        if (!place.holder) throw RangeException(cat("attribute ", attr.name, " has no such child"));
        place.entity = place.holder.get();
    }
    return place;
}

AttrLogRecord::Bytes AttrLogRecord::storedKey(const Entity& root) const {
    const Place place = placeIn(const_cast<Entity&>(root));
    const Attribute& attr = attributeOf(*place.entity, attribute);
    AttrLogReader keyLog(key);
    return attr.storedKey ? attr.storedKey(*place.entity, keyLog) : key;
}

void AttrLogRecord::applyTo(Entity& root) const {
    const Place place = placeIn(root);
    Entity* const entity = place.entity;
    const Attribute& attr = attributeOf(*entity, attribute);
    AttrLogReader keyLog(key), valueLog(value);
    // The readers take the whole of key and value before they set anything.
    const bool hasKey = operation == keySet || operation == keyDelete,
               mayHaveValue = operation == set || operation == keySet;
    if ((!hasKey && !key.empty()) || (!mayHaveValue && !value.empty())) {
        throw RangeException(cat("attribute ", attr.name, ": an operation with too much"));
    }
    switch (operation) {
        case set:
            atField(attr.name.c_str(), [&] { supported(attr.read, attr)(*entity, valueLog); });
            break;
        case keySet:
            atField(attr.name.c_str(), [&] { supported(attr.keyIs, attr)(*entity, keyLog, valueLog); });
            break;
        case keyDelete:
            atField(attr.name.c_str(), [&] { supported(attr.keyDel, attr)(*entity, keyLog); });
            break;
        case deleteAll:
            supported(attr.delAll, attr)(*entity);
            break;
        case synchronised:
            return;
    }
}

}  // namespace Quil
