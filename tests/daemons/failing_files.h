// A file system under SQLite whose calls fail on demand, with what a full or worn out disk reports.
#ifndef TESTS_DAEMONS_FAILING_FILES_H
#define TESTS_DAEMONS_FAILING_FILES_H

namespace zor::test {

enum class FileCall { kOpen, kRead, kWrite, kSync };

// Makes it the file system of all databases that are opened from now on.
void InstallFailingFiles();

// While it lives, calls of one kind fail after so many have succeeded: `failing` of them.
class FailingFiles {
 public:
  FailingFiles(FileCall call, int result, long passing = 0, long failing = 1'000'000'000);
  FailingFiles(const FailingFiles &) = delete;
  FailingFiles &operator=(const FailingFiles &) = delete;
  ~FailingFiles();

  // How many have.
  long Failed() const;
};

}  // namespace zor::test

#endif
