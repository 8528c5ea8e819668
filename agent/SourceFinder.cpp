#include "agent/SourceFinder.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "agent/Places.h"

namespace Agent {

namespace fs = std::filesystem;

namespace {
constexpr Quil::Seconds poll = 1;  // where inotify is not to be had
}

SourceFinder::SourceFinder(Quil::EventLoop& loop, const Quil::String& root, Quil::Ptr<L2Rib::AgentSourceDir> sources,
                           Quil::Seconds hold, Report report)
    : NotifieeConst(loop.clock()),
      loop_(loop),
      directory_(Mem::pathUnder(root, Places::inputs)),
      sources_(std::move(sources)),
      hold_(hold),
      report_(std::move(report)) {
    Mem::Files::makeDirectories(directory_);
    watcher_ = std::make_unique<Mem::InotifyWatcher>(loop, directory_, [this] { look(); });
    look();
}

SourceFinder::~SourceFinder() = default;

void SourceFinder::look() {
    std::error_code error;
    for (fs::directory_iterator at(directory_, error), end; !error && at != end; at.increment(error)) {
        const Quil::Name name = at->path().filename().string();
        if (!at->is_directory(error)) continue;
        auto& link = links_[name];
        if (link) {
            link->look();
        } else {
            link = std::make_unique<Link>(*this, name);
        }
    }
    std::erase_if(links_, [&](const auto& link) {
        std::error_code ignored;
        return !sources_->source(link.first) && !fs::is_directory(directory_ + "/" + link.first, ignored);
    });
    if (!watcher_->active()) wakeupTimeIs(clock().now() + poll);
}

bool SourceFinder::isSettled() const {
    return std::all_of(links_.begin(), links_.end(), [](const auto& link) { return link.second->isSettled(); });
}

SourceFinder::Link::Link(SourceFinder& finder, const Quil::Name& name)
    : NotifieeConst(finder.loop_.clock()), finder_(finder), name_(name), directory_(finder.directory_ + "/" + name) {
    look();
}

bool SourceFinder::Link::hasSocket() const {
    std::error_code ignored;
    return fs::exists(directory_ + "/" + Places::announcement, ignored);
}

void SourceFinder::Link::look() {
    struct stat now {};
    if (stat(directory_.c_str(), &now) == 0 && now.st_ino != inode_) {
        inode_ = now.st_ino;
        watcher_ = std::make_unique<Mem::InotifyWatcher>(finder_.loop_, directory_, [this] { look(); });
    }
    if (!hasSocket()) return;
    if (sink_) return sink_->connectNow();
    entry_ = finder_.sources_->sourceIs(name_);
    sink_ = std::make_unique<Quil::AttrLogSink>(finder_.loop_, directory_, Places::announcement, entry_,
                                                [this] { onState(); });
    wakeupTimeIs(clock().now() + finder_.hold_);
}

bool SourceFinder::Link::isSettled() const {
    return !sink_ || !sink_->isConnected() || (sink_->isSynchronised() && entry_->initialized());
}

void SourceFinder::Link::onState() {
    if (sink_->isSynchronised()) {
        wakeupTimeIs(Quil::never);
        isThere_ = true;
        return;
    }
    // One that connects and says nothing, or nonsense, is as good as away.
    if (sink_->isConnected() || !std::exchange(isThere_, false)) return;
    entry_->initializedIs(false);
    if (!hasSocket()) return withdraw("has withdrawn itself");
    finder_.report_(Quil::cat("source ", name_, " is away; its hosts stand for ", finder_.hold_, " s"));
    wakeupTimeIs(clock().now() + finder_.hold_);
}

void SourceFinder::Link::onTime() {
    if (sink_ && !sink_->isSynchronised()) withdraw("has not come back");
}

void SourceFinder::Link::withdraw(const char* why) {
    finder_.report_(Quil::cat("source ", name_, " ", why));
    sink_.reset();
    entry_ = nullptr;
    finder_.sources_->sourceDel(name_);
}

}  // namespace Agent
