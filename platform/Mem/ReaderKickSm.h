// ReaderKickSm.h: a reader's end of the kick socket.
//
// Threads   The reader's event-loop thread; nothing blocks. Callbacks may destroy this object.
#pragma once

#include <memory>

#include "Mem/Files.h"
#include "Mem/KickProtocol.h"
#include "Quil/EventLoop.h"

namespace Mem {

class L2RIB_EXPORT ReaderKickSm {
 public:
    struct Handler {
        virtual ~Handler();
        // The writer counts this reader from now on. kicks: it wakes sleepers.
        virtual void onWelcome(std::uint32_t fenix, bool kicks) = 0;
        virtual void onKick() = 0;
        virtual void onClosed() = 0;  // the writer is gone, or has dropped this reader
    };
    // Null when nobody listens in the directory.
    static std::unique_ptr<ReaderKickSm> connect(Quil::EventLoop& loop, const Quil::String& directory,
                                                 const Quil::String& readerName, std::uint32_t fenix, Handler& handler);
    // False when the writer's buffer is full: try again later.
    bool acknowledge(const KickAck& ack);

 private:
    ReaderKickSm(Quil::EventLoop& loop, FileDescriptor socket, Handler& handler);
    void receive();
    Handler& handler_;
    const FileDescriptor socket_;
    const Quil::EventLoop::Watch watch_;
};

}  // namespace Mem
