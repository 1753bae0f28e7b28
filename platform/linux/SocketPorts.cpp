#include "SocketPorts.h"

#include "Log.h"

#include <errno.h>
#include <string.h>

namespace quorl {

std::unique_ptr<SocketPort> SocketPort::make() {
    auto ends = makeSocketPair();
    if (!ends) {
        logLine("SocketPort : no port can be made: {}", strerror(errno));
        return nullptr;
    }
    return std::unique_ptr<SocketPort>(new SocketPort(
        std::move(ends->first), std::make_shared<SocketSendRight>(std::move(ends->second))));
}

SocketPort::SocketPort(FileDescriptor receiver, SendRightPtr sendRight)
    : socket_(std::move(receiver)), sendRight_(std::move(sendRight)) {}

SocketPort::~SocketPort() {
    SocketPort::invalidate();
}

void SocketPort::addToRunLoop(RunLoop& loop) {
    loop.add(*this);
    loop_ = &loop;
}

void SocketPort::invalidate() {
    if (loop_)
        loop_->remove(*this);
    loop_ = nullptr;
    sendRight_.reset();
    socket_.reset();
}

void SocketPort::ready() {
    auto message = receiver_.receive(socket_.get());
    if (message) {
        handler_(std::move(*message));
        return;
    }
    switch (message.error().kind) {
        case NoMessage::nothingThere:
            return;
        case NoMessage::refused:
            logLine("SocketPort : packet refused: {}", std::string(message.error().reason));
            return;
        case NoMessage::closedByPeer:
            // Would stay readable for ever.
            invalidate();
            return;
    }
}

}  // namespace quorl
