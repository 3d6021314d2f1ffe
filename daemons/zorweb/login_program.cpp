// zorweb-login: asks the system's authentication (PAM) about one name and password, for zorweb. Reads both from its
// standard input, each with a NUL behind it, and writes "ok" or "no" to its standard output.
#include <security/pam_appl.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "common/write_all.h"
#include "programs/paths.h"

namespace {

constexpr char kService[] = "zorweb";
constexpr unsigned kSeconds = 60;  // a module that blocks for longer is stuck

// "NAME\0PASSWORD\0"
std::array<char, 1024> question;

bool ReadQuestion() {
  size_t length = 0;
  int nuls = 0;
  while (nuls < 2 && length < question.size()) {
    const ssize_t count = ::read(STDIN_FILENO, question.data() + length, question.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    for (const char each : std::span(question).subspan(length, static_cast<size_t>(count)))
      nuls += each == '\0' ? 1 : 0;
    length += static_cast<size_t>(count);
  }
  return nuls == 2 && question[length - 1] == '\0';
}

// The password to every hidden question. Anything else a module asks cannot be answered here.
int Converse(int count, const pam_message **messages, pam_response **responses, void *password) {
  auto *made = static_cast<pam_response *>(std::calloc(static_cast<size_t>(count), sizeof(pam_response)));
  if (made == nullptr) return PAM_BUF_ERR;
  for (int i = 0; i < count; ++i) {
    if (messages[i]->msg_style == PAM_PROMPT_ECHO_OFF) made[i].resp = ::strdup(static_cast<const char *>(password));
    if (messages[i]->msg_style == PAM_PROMPT_ECHO_ON) {
      for (int k = 0; k < i; ++k) std::free(made[k].resp);
      std::free(made);
      return PAM_CONV_ERR;
    }
  }
  *responses = made;
  return PAM_SUCCESS;
}

bool IsRight(const char *user, char *password) {
  const pam_conv conversation = {Converse, password};
  pam_handle_t *pam = nullptr;
  // The system's own directory, or that of a system in a directory.
  const std::string services = zor::daemon::FixedPath("/etc/pam.d");
  int status = services == "/etc/pam.d" ? ::pam_start(kService, user, &conversation, &pam)
                                        : ::pam_start_confdir(kService, user, &conversation, services.c_str(), &pam);
  if (status != PAM_SUCCESS) return false;
  status = ::pam_authenticate(pam, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
  if (status == PAM_SUCCESS) status = ::pam_acct_mgmt(pam, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
  ::pam_end(pam, status);
  return status == PAM_SUCCESS;
}

}  // namespace

int main() {
  ::alarm(kSeconds);
  ::openlog("zorweb-login", LOG_PID, LOG_AUTHPRIV);
  if (!ReadQuestion()) return 2;
  const char *user = question.data();
  char *password = question.data() + std::strlen(user) + 1;
  const bool right = IsRight(user, password);
  ::explicit_bzero(question.data(), question.size());
  const std::string_view answer = right ? "ok\n" : "no\n";
  return zor::WriteAll(STDOUT_FILENO, std::as_bytes(std::span(answer))) ? 0 : 1;
}
