// Child processes of a test. A test forks before it opens a store of its own.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>

namespace bmtree::test {

// Runs `body`, whose result from 0 to 100 is the child's exit status; an exception gives 101.
class ChildProcess {
 public:
  template <class Body>
  explicit ChildProcess(const Body& body) : id_(::fork()) {
    if (id_ != 0) return;
    int status = 101;
    try {
      status = body();
    } catch (const std::exception& error) {
      std::cerr << "child: " << error.what() << std::endl;
    }
    ::_exit(status);
  }

  void kill() const { ::kill(id_, SIGKILL); }

  // The exit status; -1 if a signal ended it.
  int wait() const {
    int status = 0;
    if (::waitpid(id_, &status, 0) != id_) return -2;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  const pid_t id_;
};

template <class Body>
int inChild(const Body& body) {
  return ChildProcess(body).wait();
}

// One process tells another to go on.
class Pipe {
 public:
  Pipe() {
    if (::pipe(ends_) != 0) std::abort();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    ::close(ends_[0]);
    ::close(ends_[1]);
  }

  void send() const {
    const char byte = 1;
    if (::write(ends_[1], &byte, 1) != 1) std::abort();
  }
  // False if nobody will send any more.
  bool wait() const {
    char byte = 0;
    return ::read(ends_[0], &byte, 1) == 1;
  }

 private:
  int ends_[2];
};

}  // namespace bmtree::test
