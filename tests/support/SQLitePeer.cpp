// SPDX-License-Identifier: Apache-2.0
#include "support/SQLitePeer.hpp"

#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "platform/SystemError.hpp"

namespace tolva {
namespace {

pid_t spawnPeer(std::filesystem::path const& database, int channel) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, channel, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, channel, STDOUT_FILENO);
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  std::string program = TOLVA_SQLITE_PEER;
  std::string path = std::filesystem::absolute(database);
  std::array<char*, 3> const arguments{program.data(), path.data(), nullptr};
  pid_t process = -1;
  errno = ::posix_spawn(&process, program.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (errno != 0) throwFileError("The peer cannot be started", program);
  return process;
}

}  // namespace

SQLitePeer::SQLitePeer(std::filesystem::path const& database) {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throwSystemError("socketpair");
  channel_ = Descriptor(ends[0]);
  Descriptor const peers(ends[1]);
  process_ = spawnPeer(database, peers.get());
}

SQLitePeer::~SQLitePeer() {
  channel_.reset();  // the end of its input is the end of the peer
  ::waitpid(process_, nullptr, 0);
}

void SQLitePeer::kill() {
  ::kill(process_, SIGKILL);
  ::waitid(P_PID, static_cast<id_t>(process_), nullptr, WEXITED | WNOWAIT);
}

std::string SQLitePeer::exec(std::string const& sql) { return ask("exec " + sql); }

std::string SQLitePeer::rows(std::string const& sql) {
  std::string const answer = ask("rows " + sql);
  return answer.starts_with("rows ") ? readBytes(std::stoul(answer.substr(5))) : answer;
}

std::string SQLitePeer::ask(std::string const& line) {
  if (line.find('\n') != std::string::npos) throw std::invalid_argument("The peer takes one line");
  std::string const sent = line + "\n";
  if (::send(channel_.get(), sent.data(), sent.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(sent.size()))
    throwSystemError("The peer takes no more commands");
  return readLine();
}

std::string SQLitePeer::readLine() {
  while (received_.find('\n') == std::string::npos) receive();
  std::string const line = received_.substr(0, received_.find('\n'));
  received_.erase(0, line.size() + 1);
  return line;
}

std::string SQLitePeer::readBytes(std::size_t size) {
  while (received_.size() < size) receive();
  std::string const bytes = received_.substr(0, size);
  received_.erase(0, size);
  return bytes;
}

void SQLitePeer::receive() {
  std::array<char, 4096> part{};
  ssize_t const got = ::recv(channel_.get(), part.data(), part.size(), 0);
  if (got < 0) throwSystemError("The peer's answer cannot be read");
  if (got == 0) throw std::runtime_error("The peer has ended.");
  received_.append(part.data(), static_cast<std::size_t>(got));
}

}  // namespace tolva
