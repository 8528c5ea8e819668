#include "Quil/AttrLogSource.h"

#include <sys/socket.h>

#include <cerrno>
#include <map>
#include <set>

#include "Quil/AttrLogRecord.h"
#include "Quil/LocalSocket.h"
#include "Quil/Trace.h"

namespace Quil {
namespace {

using Bytes = AttrLogRecord::Bytes;

constexpr std::size_t bufferSize = 256 << 10;  // no more is made ready than this and the records of one entity
constexpr Seconds retry = 0.01;                // while the socket is full

Trace& trace() {
    static Trace& handle = Trace::handler("Quil::AttrLog");
    return handle;
}

}  // namespace

// One sink: an image of the tree as it was sent.
class AttrLogSource::Peer : EntityObserver, Clock::NotifieeConst {
 public:
    Peer(AttrLogSource& source, FileDescriptor fd)
        : NotifieeConst(source.loop_.clock()),
          source_(source),
          fd_(std::move(fd)),
          watch_(source.loop_, fd_.get(), [this] { receive(); }) {}
    ~Peer() override {
        for (const auto& [entity, image] : images_) image->entity->fwkObservers().detach(this);
    }

 private:
    struct Image {
        Ptr<const Entity> entity;
        AttrLogRecord::Path path;
        std::vector<Bytes> scalars;                        // by attribute
        std::vector<std::map<Bytes, Bytes>> members;       // by attribute
        std::vector<std::map<Bytes, const Entity*>> kids;  // by attribute
    };

    void onEntityChanged(const Entity& entity) override {
        const auto image = images_.find(&entity);
        if (image == images_.end()) return;
        dirty_.insert(image->second.get());
        if (wakeupTime() > clock().now()) wakeupTimeIs(clock().now());
    }
    void onTime() override { flush(); }

    void receive() {
        if (started_) return receiveRequests();
        std::uint8_t bytes[AttrLogHello::size];
        const ssize_t size = recv(fd_.get(), bytes, sizeof bytes, MSG_DONTWAIT);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (size != static_cast<ssize_t>(sizeof bytes)) return close(size == 0 ? "" : "no hello");
        AttrLogReader log(bytes, sizeof bytes);
        AttrLogHello hello{log.get<std::uint32_t>(), log.get<std::uint16_t>(), log.get<std::uint16_t>()};
        if (hello.magic != AttrLogHello::magicNumber || hello.version != AttrLogHello::currentVersion) {
            return close("a hello of another kind");
        }
        started_ = true;
        startAt_ = hello.startAt;
        enter(*source_.root_, {});
        flush();
    }

    void receiveRequests() {
        std::uint8_t bytes[4096];
        const ssize_t size = recv(fd_.get(), bytes, sizeof bytes, MSG_DONTWAIT);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
        if (size <= 0) return close("");
        if (source_.access_ != writable || !LocalSocket::isOwner(fd_.get())) return close("it may not write");
        requests_.insert(requests_.end(), bytes, bytes + size);
        const Ptr<Entity> root = source_.root_;
        const std::weak_ptr<void> alive = alive_;  // a watcher may destroy the source
        try {
            std::size_t taken = 0;
            while (const auto record = alive.expired() ? std::nullopt : AttrLogRecord::next(requests_, taken)) {
                if (!record->path.empty() || record->operation != AttrLogRecord::set) return close("no such request");
                record->applyTo(*root);
            }
            if (alive.expired()) return;
            requests_.erase(requests_.begin(), requests_.begin() + static_cast<std::ptrdiff_t>(taken));
        } catch (const RangeException& error) {
            if (!alive.expired()) close(error.what());
        }
    }

    // Ends this object.
    void close(const String& why) {
        if (!why.empty()) trace().log(3, [&] { return cat("a sink is disconnected: ", why); });
        source_.peers_.remove_if([this](const auto& peer) { return peer.get() == this; });
    }

    void enter(const Entity& entity, AttrLogRecord::Path path) {
        auto image = std::make_unique<Image>();
        image->entity = &entity;
        image->path = std::move(path);
        const std::size_t count = entity.fwkType().attributes.size();
        image->scalars.resize(count);
        image->members.resize(count);
        image->kids.resize(count);
        entity.fwkObservers().attach(this);
        dirty_.insert(image.get());
        images_[&entity] = std::move(image);
    }
    void leave(const Entity* entity) {
        const auto node = images_.extract(entity);
        if (node.empty()) return;
        for (const auto& kids : node.mapped()->kids) {
            for (const auto& [key, kid] : kids) leave(kid);
        }
        node.mapped()->entity->fwkObservers().detach(this);
        dirty_.erase(node.mapped().get());
    }

    void flush() {
        for (;;) {
            while (!dirty_.empty() && buffer_.size() < bufferSize) {
                Image* image = *dirty_.begin();
                dirty_.erase(dirty_.begin());
                send(*image);
            }
            if (dirty_.empty() && !synchronised_) {
                synchronised_ = true;
                append({}, 0, AttrLogRecord::synchronised);
            }
            if (buffer_.empty()) return;
            const ssize_t size = ::send(fd_.get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
            if (size < 0 && errno != EAGAIN && errno != EINTR) return close("");
            if (size <= 0) return wakeupTimeIs(clock().now() + retry);
            buffer_.erase(buffer_.begin(), buffer_.begin() + size);
        }
    }

    void append(const AttrLogRecord::Path& path, std::uint16_t attribute, AttrLogRecord::Operation operation,
                Bytes key = {}, Bytes value = {}) {
        AttrLogRecord{path, attribute, operation, std::move(key), std::move(value)}.appendTo(buffer_);
    }

    // What differs from the image, scalars first.
    void send(Image& image) {
        const auto& attributes = image.entity->fwkType().attributes;
        for (std::size_t i = 0; i < attributes.size(); ++i) {
            if (attributes[i].write) sendScalar(image, i, attributes[i]);
        }
        for (std::size_t i = 0; i < attributes.size(); ++i) {
            if (attributes[i].forEach) sendCollection(image, i, attributes[i]);
        }
    }

    void sendScalar(Image& image, std::size_t i, const Attribute& attribute) {
        AttrLogWriter log;
        attribute.write(*image.entity, log);
        if (image.scalars[i] == log.bytes()) return;
        image.scalars[i] = log.bytes();
        // Not wanted at first; what changes later is.
        if (image.path.empty() && i + 1 < startAt_ && !synchronised_) return;
        append(image.path, static_cast<std::uint16_t>(i + 1), AttrLogRecord::set, {}, log.bytes());
    }

    void sendCollection(Image& image, std::size_t i, const Attribute& attribute) {
        const auto id = static_cast<std::uint16_t>(i + 1);
        std::map<Bytes, Bytes> members;
        std::map<Bytes, const Entity*> kids;
        attribute.forEach(*image.entity, [&](const Bytes& key, const Bytes& value, const Entity* child) {
            child ? void(kids[key] = child) : void(members[key] = value);
        });
        std::vector<Bytes> gone;
        for (const auto& [key, value] : image.members[i]) {
            if (!members.contains(key)) gone.push_back(key);
        }
        // A child that was replaced by another of its key goes first.
        for (const auto& [key, kid] : image.kids[i]) {
            const auto now = kids.find(key);
            if (now != kids.end() && now->second == kid) continue;
            gone.push_back(key);
            leave(kid);
        }
        const bool all = gone.size() > 1 && members.empty() && kids.empty();
        if (all) append(image.path, id, AttrLogRecord::deleteAll);
        for (const Bytes& key : gone) {
            if (!all) append(image.path, id, AttrLogRecord::keyDelete, key);
        }
        for (const auto& [key, value] : members) {
            const auto before = image.members[i].find(key);
            if (before != image.members[i].end() && before->second == value) continue;
            append(image.path, id, AttrLogRecord::keySet, key, value);
        }
        for (const auto& [key, kid] : kids) {
            const auto before = image.kids[i].find(key);
            if (before != image.kids[i].end() && before->second == kid) continue;
            append(image.path, id, AttrLogRecord::keySet, key);
            AttrLogRecord::Path path = image.path;
            path.push_back({id, key});
            enter(*kid, std::move(path));
        }
        image.members[i] = std::move(members);
        image.kids[i] = std::move(kids);
    }

    AttrLogSource& source_;
    const FileDescriptor fd_;
    const EventLoop::Watch watch_;
    bool started_ = false;
    bool synchronised_ = false;
    std::uint16_t startAt_ = 1;
    std::map<const Entity*, std::unique_ptr<Image>> images_;
    std::set<Image*> dirty_;
    Bytes buffer_;
    Bytes requests_;  // the beginning of one
    const std::shared_ptr<void> alive_ = std::make_shared<int>();
};

AttrLogSource::AttrLogSource(EventLoop& loop, const String& directory, const String& name, Ptr<Entity> root,
                             Access access)
    : loop_(loop),
      root_(std::move(root)),
      access_(access),
      listener_(loop, directory, name, SOCK_STREAM,
                [this](FileDescriptor fd) { peers_.push_back(std::make_unique<Peer>(*this, std::move(fd))); }) {}

AttrLogSource::~AttrLogSource() = default;

}  // namespace Quil
