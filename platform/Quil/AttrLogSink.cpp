#include "Quil/AttrLogSink.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "Quil/LocalSocket.h"
#include "Quil/Trace.h"

namespace Quil {

AttrLogSink::AttrLogSink(EventLoop& loop, String directory, String name, Ptr<Entity> root,
                         std::function<void()> onState, std::uint16_t startAt)
    : NotifieeConst(loop.clock()),
      loop_(loop),
      directory_(std::move(directory)),
      name_(std::move(name)),
      root_(std::move(root)),
      onState_(std::move(onState)),
      startAt_(startAt) {
    wakeupTimeIs(clock().now());
}

AttrLogSink::~AttrLogSink() = default;

void AttrLogSink::onTime() { fd_ ? takeRecords() : connect(); }

void AttrLogSink::connectNow() {
    retry_ = minRetry;
    if (!fd_) wakeupTimeIs(clock().now());
}

bool AttrLogSink::ask(const Entity& wanted, std::uint16_t attribute) {
    const auto& attributes = wanted.fwkType().attributes;
    if (attribute == 0 || attribute > attributes.size() || !attributes[attribute - 1u].write) {
        throw RangeException(cat(wanted.fwkType().name, " has no scalar ", attribute));
    }
    AttrLogWriter value;
    attributes[attribute - 1u].write(wanted, value);
    AttrLogRecord::Bytes bytes;
    AttrLogRecord{{}, attribute, AttrLogRecord::set, {}, value.bytes()}.appendTo(bytes);
    return fd_ && send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

void AttrLogSink::connect() {
    wakeupTimeIs(clock().now() + retry_);
    retry_ = std::min(2 * retry_, maxRetry);
    fd_ = LocalSocket::connect(directory_, name_.c_str(), SOCK_STREAM);
    if (!fd_) return;
    AttrLogWriter hello;
    hello.write(AttrLogHello::magicNumber);
    hello.write(AttrLogHello::currentVersion);
    hello.write(startAt_);
    const auto size = static_cast<ssize_t>(hello.bytes().size());
    if (!LocalSocket::isTrusted(fd_.get()) ||
        send(fd_.get(), hello.bytes().data(), hello.bytes().size(), MSG_NOSIGNAL) != size) {
        fd_ = {};
        return;
    }
    try {
        watch_ = std::make_unique<EventLoop::Watch>(loop_, fd_.get(), [this] { receive(); });
    } catch (const SystemException&) {
        fd_ = {};
        return;
    }
    wakeupTimeIs(never);
    tell();
}

void AttrLogSink::disconnect(Seconds pause) {
    watch_.reset();
    fd_ = {};
    buffer_.clear();
    taken_ = 0;
    seen_.clear();
    unseen_.clear();
    isTold_ = isSynchronised_ = false;
    wakeupTimeIs(clock().now() + std::max(pause, retry_));
    tell();
}

void AttrLogSink::receive() {
    std::uint8_t bytes[64 << 10];
    const ssize_t size = recv(fd_.get(), bytes, sizeof bytes, MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (size <= 0) return disconnect(minRetry);
    buffer_.insert(buffer_.end(), bytes, bytes + size);
    takeRecords();
}

void AttrLogSink::takeRecords() {
    const std::weak_ptr<void> alive = alive_;
    wakeupTimeIs(clock().now());  // should a watcher throw, the next turn goes on behind its record
    try {
        while (takeRecord()) {
            if (alive.expired()) return;
        }
    } catch (const RangeException& error) {
        if (alive.expired()) return;
        Trace::handler("Quil::AttrLog").log(3, [&] {
            return cat("the source ", directory_, "/", name_, " is disconnected: ", error.what());
        });
        return disconnect(faultPause);
    }
    if (alive.expired()) return;
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(taken_));
    taken_ = 0;
    wakeupTimeIs(never);
}

// False when no whole record is there.
bool AttrLogSink::takeRecord() {
    if (isTold_ && !isSynchronised_) return removeUnseen(), true;
    const auto record = AttrLogRecord::next(buffer_, taken_);
    if (record) apply(*record);
    return record.has_value();
}

void AttrLogSink::apply(const AttrLogRecord& record) {
    const Ptr<Entity> root = root_;  // a watcher may destroy this object
    if (record.operation == AttrLogRecord::synchronised) {
        AttrLogRecord::Path path;
        if (!isTold_) findUnseen(*root, path);
        isTold_ = true;
        seen_.clear();
        return;
    }
    if (!isTold_ && record.operation == AttrLogRecord::keySet) noteSeen(record);
    record.applyTo(*root);
}

// By the key as the tree has it: an equal one may have come in other bytes.
void AttrLogSink::noteSeen(const AttrLogRecord& record) {
    AttrLogRecord::Path path = record.path;
    path.push_back({record.attribute, record.storedKey(*root_)});
    seen_.insert(std::move(path));
}

// What the source has not told of, though it has told all.
void AttrLogSink::findUnseen(Entity& entity, AttrLogRecord::Path& path) {
    const auto& attributes = entity.fwkType().attributes;
    for (std::size_t i = 0; i < attributes.size(); ++i) {
        if (!attributes[i].forEach) continue;
        const auto id = static_cast<std::uint16_t>(i + 1);
        attributes[i].forEach(entity, [&](const auto& key, const auto&, const Entity* child) {
            path.push_back({id, key});
            const bool isSeen = seen_.contains(path);
            if (isSeen && child) findUnseen(const_cast<Entity&>(*child), path);
            path.pop_back();
            if (!isSeen) unseen_.push_back({path, id, AttrLogRecord::keyDelete, key, {}});
        });
    }
}

// One at a time, so that what a watcher throws, or that it destroys this object, leaves nothing half done.
void AttrLogSink::removeUnseen() {
    if (unseen_.empty()) {
        isSynchronised_ = true;
        retry_ = minRetry;
        return tell();
    }
    const AttrLogRecord record = std::move(unseen_.front());
    unseen_.pop_front();
    const Ptr<Entity> root = root_;
    try {
        record.applyTo(*root);
    } catch (const RangeException&) {
        // It went with its parent, which a watcher has removed.
    }
}

}  // namespace Quil
