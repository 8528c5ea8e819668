#include "common/Names.h"

#include <net/if.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>

#include "Mem/Files.h"
#include "Verro/Hash.h"

namespace Apps {

Quil::String hyphenated(const Quil::String& enumerator, std::string_view prefix) {
    if (!enumerator.starts_with(prefix)) return enumerator;
    Quil::String out;
    for (const char c : enumerator.substr(prefix.size())) {
        if (std::isupper(static_cast<unsigned char>(c)) && !out.empty()) out += '-';
        out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return out;
}

Quil::String sourceName(L2Rib::Source source) { return hyphenated(stringValue(source), "source"); }
Quil::String sourceNames(std::uint32_t mask) {
    Quil::String names;
    for (std::uint32_t bit = 1; bit != 0; bit <<= 1) {
        if (mask & bit) names += (names.empty() ? "" : ",") + sourceName(static_cast<L2Rib::Source>(bit));
    }
    return names.empty() ? "none" : names;
}
std::uint32_t sourceMaskOf(const Quil::String& names) {
    std::uint32_t mask = 0;
    for (std::size_t at = 0; at <= names.size();) {
        const std::size_t end = std::min(names.find(',', at), names.size());
        const Quil::String name = names.substr(at, end - at);
        try {
            mask |= sourceOfName(name);
        } catch (const Quil::RangeException& error) {
            throw Quil::RangeException(Quil::cat(name, ": ", error.message()));
        }
        at = end + 1;
    }
    return mask;
}

Quil::String entryTypeName(Bridging::EntryType entryType) { return hyphenated(stringValue(entryType), "entryType"); }

L2Rib::Source sourceOfName(const Quil::String& name) {
    for (const auto& row : fwkEnum(L2Rib::Source()).rows) {
        const bool oneSource = row.value != L2Rib::sourceNone && row.value != L2Rib::sourceAll;
        if (oneSource && hyphenated(row.name, "source") == name) return row.value;
    }
    throw Quil::RangeException("no source of this name");
}

void InterfaceNames::nameIs(std::uint32_t index, const Quil::String& name) {
    if (name.empty()) {
        changed_ = names_.erase(index) > 0 || changed_;
    } else if (Quil::String& known = names_[index]; known != name) {
        known = name;
        changed_ = true;
    }
}

Lanx::IntfId InterfaceNames::interfaceIs(const Quil::String& name) {
    // As the kernel has it: up to 15 bytes without blanks and slashes.
    if (name.empty() || name.size() >= IF_NAMESIZE || name.find_first_of(" \t\n/") != name.npos) {
        throw Quil::RangeException("is not the name of an interface");
    }
    constexpr std::uint32_t made = 0x80000000u;  // no index of the kernel's is so high
    const std::uint32_t index = made | Verro::Util::hash(name.data(), name.size());
    nameIs(index, name);
    return {Lanx::IntfId::ethernet, index};
}

namespace {
Quil::String directoryUnder(const Quil::String& root) { return Mem::pathUnder(root, "interfaces"); }
}  // namespace

void InterfaceNames::writeTo(const Quil::String& root, const Quil::Name& producer) {
    if (!changed_) return;
    Quil::String text;
    for (const auto& [index, name] : names_) text += Quil::cat(index, " ", name, "\n");
    const Quil::String path = directoryUnder(root) + "/" + producer, fresh = path + ".new";
    Mem::Files::makeDirectories(directoryUnder(root));
    {
        const auto file = Mem::Files::create(fresh);
        Mem::Files::write(file.get(), fresh, text.data(), text.size());
    }
    Mem::Files::rename(fresh, path);
    changed_ = false;
}

InterfaceNames InterfaceNames::readFrom(const Quil::String& root) {
    InterfaceNames read;
    read.refreshFrom(root);
    return read;
}

void InterfaceNames::refreshFrom(const Quil::String& root) {
    std::error_code error;
    for (std::filesystem::directory_iterator at(directoryUnder(root), error), end; !error && at != end;
         at.increment(error)) {
        if (at->path().extension() == ".new") continue;
        std::ifstream file(at->path());
        hasFile_ = hasFile_ || file.is_open();
        for (Quil::String line; std::getline(file, line);) {
            const auto blank = line.find(' ');
            std::uint32_t index = 0;
            if (blank == line.npos || !Quil::parseNumber(std::string_view(line).substr(0, blank), index)) continue;
            names_[index] = line.substr(blank + 1);
        }
    }
}

namespace {
Quil::String printable(Quil::String name) {
    for (char& c : name) {
        if (c <= ' ' || c > '~') c = '?';
    }
    return name;
}
}  // namespace

std::optional<Quil::String> InterfaceNames::name(std::uint32_t index) const {
    if (const auto found = names_.find(index); found != names_.end()) return printable(found->second);
    char name[IF_NAMESIZE];
    if (!hasFile_ && if_indextoname(index, name)) return printable(name);
    return std::nullopt;
}

std::optional<Quil::String> InterfaceNames::interfaceName(Lanx::IntfId intfId) const {
    if (intfId.kind() != Lanx::IntfId::ethernet || intfId.payload() > 0xffffffffu) return std::nullopt;
    return name(static_cast<std::uint32_t>(intfId.payload()));
}

std::vector<Lanx::IntfId> InterfaceNames::interfacesOf(const Quil::String& name) const {
    std::vector<Lanx::IntfId> found;
    for (const auto& [index, known] : names_) {
        if (known == name) found.emplace_back(Lanx::IntfId::ethernet, index);
    }
    return found;
}

}  // namespace Apps
