#include <limits.h>
#include <netdb.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "qen/qen_file.h"

QEN_TString QEN_TSocket::HostName(bool fullyQualified) {
  char name[HOST_NAME_MAX + 1] = {};
  if (::gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return QEN_TString("localhost");
  std::string host(name);

  if (!fullyQualified) return QEN_TString(host.substr(0, host.find('.')));
  if (host.find('.') != std::string::npos) return QEN_TString(host);

  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_CANONNAME;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) == 0 && found != nullptr) {
    if (found->ai_canonname != nullptr && ::strchr(found->ai_canonname, '.') != nullptr)
      host = found->ai_canonname;
    ::freeaddrinfo(found);
  }
  return QEN_TString(host);
}
