// SPDX-License-Identifier: Apache-2.0
// Two processes on a socket that share a package of names, which travel as numbers. Each request is
// answered before the next one is sent.
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <string>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/typed_attribute.h"
#include "ovcore/error_codes.h"
#include "ovcore/exception.h"
#include "ovcore/write_stream.h"
#include "ovserialize/stream_reader.h"
#include "ovserialize/stream_writer.h"

using namespace ovattribute;

// [streams]
// The library has such a stream (FileReadStream); this shows how to make your own.
class SocketReadStream final : public ovcore::IReadStream {
 public:
  explicit SocketReadStream(int socket) : m_socket(socket) {}
  std::size_t read(void* buffer, std::size_t size) override {
    std::size_t done = 0;
    for (std::size_t piece = 1; piece != 0 && done < size; done += piece)  // 0 at the end
      piece = read_some(static_cast<char*>(buffer) + done, size - done);
    return done;
  }
  std::size_t read_some(void* buffer, std::size_t size) override {
    ssize_t got;
    while ((got = recv(m_socket, buffer, size, 0)) < 0) {
      if (errno != EINTR)
        ovcore::throw_error(ovcore::error::ovcore_stream_read, "The socket failed",
                            {"example", "SocketReadStream::read_some()", 0});
    }
    return static_cast<std::size_t>(got);
  }
  std::uint64_t remaining() const override { return unknown; }

 private:
  const int m_socket;
};
// [streams]

// [names]
const TypedAttribute<std::string> article{"article"};
const TypedAttribute<int> count{"count"};
const TypedAttribute<int> in_stock{"in stock"};

// Both ends make the same package of the same names; its id follows from them.
AttributeNamePackageSet::Ptr shared_names() {
  return AttributeNamePackageSet::create(
      AttributeNamePackage::create({article.name(), count.name(), in_stock.name()}));
}
// [names]

// One end of the conversation. The coders last as long as the connection.
// [peer]
class Peer {
 public:
  explicit Peer(int socket) : m_source(socket), m_target(socket) {}

  void send(const AttributeMap& map) {
    map.write(m_writer, m_encoder);
    m_writer.flush();
  }
  AttributeMap receive() { return AttributeMap(m_reader, m_decoder); }
  bool at_end() { return m_reader.at_end(); }
  std::uint64_t bytes_sent() const { return m_writer.size(); }

 private:
  SocketReadStream m_source;
  ovcore::FileWriteStream m_target;
  ovserialize::StreamReader m_reader{m_source};
  ovserialize::StreamWriter m_writer{m_target};
  AttributeNameEncoder m_encoder{shared_names()};
  AttributeNameDecoder m_decoder{shared_names(), /*strict=*/true};
};
// [peer]

void answer_requests(int socket) {
  // [consumer]
  Peer peer(socket);
  while (!peer.at_end()) {
    const AttributeMap request = peer.receive();
    peer.send(AttributeMap{{in_stock.name(), 10 - count.get(request)}});
  }
  // [consumer]
}

int main() {
  int sockets[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) != 0) return 1;
  const pid_t consumer = fork();
  if (consumer == 0) {
    close(sockets[0]);
    answer_requests(sockets[1]);
    _exit(0);
  }
  close(sockets[1]);

  // [producer]
  Peer peer(sockets[0]);
  for (const int wanted : {1, 2, 3}) {
    const std::uint64_t before = peer.bytes_sent();
    peer.send(AttributeMap{{article.name(), "cable"}, {count.name(), wanted}});
    const std::uint64_t size = peer.bytes_sent() - before;
    const AttributeMap answer = peer.receive();  // before the next request is sent
    std::cout << size << " bytes sent, " << in_stock.get(answer) << " in stock\n";
  }
  // [producer]

  shutdown(sockets[0], SHUT_WR);  // the end, for the consumer
  return waitpid(consumer, nullptr, 0) == consumer ? 0 : 1;
}
