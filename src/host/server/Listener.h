// Sockets that listen: made, bound and checked. Every descriptor is close-on-exec and non-blocking.
#pragma once

#include <string>

namespace almanac::host {

// The descriptor, or -1 with one line in `error`. See HttpServer.
int openUnixListener(const std::string& path, std::string* error);
// The descriptor, with the port that was taken in `*port`, or -1.
int openTcpListener(unsigned short* port, std::string* error);

}  // namespace almanac::host
