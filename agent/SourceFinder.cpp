#include "agent/SourceFinder.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "agent/Places.h"

namespace Agent {

namespace fs = std::filesystem;

namespace {

constexpr Quil::Seconds poll = 2;      // should inotify not be had, or miss something
constexpr Quil::Seconds patience = 1;  // with one that has just answered

// Of the directory that has this name now; 0 when there is none.
ino_t inodeOf(const Quil::String& path) {
    struct stat now {};
    return stat(path.c_str(), &now) == 0 ? now.st_ino : 0;
}

}  // namespace

SourceFinder::SourceFinder(Quil::EventLoop& loop, const Quil::String& root, Quil::Ptr<L2Rib::AgentSourceDir> sources,
                           Quil::Seconds hold, Report report)
    : NotifieeConst(loop.clock()),
      loop_(loop),
      directory_(Mem::pathUnder(root, Places::inputs)),
      sources_(std::move(sources)),
      hold_(hold),
      report_(std::move(report)) {
    look();
}

SourceFinder::~SourceFinder() = default;

void SourceFinder::look() {
    wakeupTimeIs(clock().now() + poll);
    if (!watcher_ || inodeOf(directory_) != inode_) {
        Mem::Files::makeDirectories(directory_);
        inode_ = inodeOf(directory_);
        watcher_ = std::make_unique<Mem::InotifyWatcher>(loop_, directory_, [this] { look(); });
    }
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
    if (const auto now = inodeOf(directory_); now != 0 && now != inode_) {
        inode_ = now;
        watcher_ = std::make_unique<Mem::InotifyWatcher>(finder_.loop_, directory_, [this] { onNews(); });
    }
    if (!sink_ && hasSocket()) probe();
}

void SourceFinder::Link::onNews() {
    look();
    if (sink_) sink_->connectNow();
}

// Until somebody answers the source has no place in the directory: a socket may be a dead one's.
void SourceFinder::Link::probe() {
    entry_ = nullptr;
    sink_ = std::make_unique<Quil::AttrLogSink>(finder_.loop_, directory_, Places::announcement,
                                                L2Rib::sourceDirEntryFactory(name_), [this] { onAnswer(); });
}

void SourceFinder::Link::onAnswer() {
    if (!sink_->isConnected()) return;
    entry_ = finder_.sources_->sourceIs(name_);
    sink_ = std::make_unique<Quil::AttrLogSink>(finder_.loop_, directory_, Places::announcement, entry_,
                                                [this] { onState(); });
    wakeupTimeIs(clock().now() + std::max(finder_.hold_, patience));
}

bool SourceFinder::Link::isSettled() const {
    if (!sink_) return true;
    return entry_ ? sink_->isSynchronised() && entry_->initialized() : !sink_->isConnected();
}

void SourceFinder::Link::onState() {
    if (sink_->isSynchronised()) {
        if (std::exchange(isAway_, false)) finder_.report_(Quil::cat("source ", name_, " is back"));
        return wakeupTimeIs(Quil::never);
    }
    if (sink_->isConnected()) return;
    entry_->initializedIs(false);
    if (!hasSocket()) return withdraw("has withdrawn itself");
    // One that connects and says nothing, or nonsense, is as good as away: its time goes on.
    if (wakeupTime() != Quil::never) return;
    isAway_ = true;
    finder_.report_(Quil::cat("source ", name_, " is away; its hosts stand for ", finder_.hold_, " s"));
    wakeupTimeIs(clock().now() + finder_.hold_);
}

void SourceFinder::Link::onTime() {
    if (!entry_ || sink_->isSynchronised()) return;
    if (sink_->isConnected()) return wakeupTimeIs(clock().now() + patience);  // it is there, but slow
    withdraw("has not come back");
}

void SourceFinder::Link::withdraw(const char* why) {
    finder_.report_(Quil::cat("source ", name_, " ", why));
    sink_.reset();
    entry_ = nullptr;
    isAway_ = false;
    wakeupTimeIs(Quil::never);
    finder_.sources_->sourceDel(name_);
    if (hasSocket()) probe();
}

}  // namespace Agent
