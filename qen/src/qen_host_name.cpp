#include <string>

#include "qen/qen_file.h"
#include "vyr_system.h"

QEN_TString QEN_TSocket::HostName(bool fullyQualified) {
  std::string host;
  if (!vyr::sys::HostName(host) || host.empty()) return QEN_TString("localhost");

  if (!fullyQualified) return QEN_TString(host.substr(0, host.find('.')));
  if (host.find('.') != std::string::npos) return QEN_TString(host);

  std::string canonical;
  if (vyr::sys::CanonicalHostName(host, canonical) && canonical.find('.') != std::string::npos)
    host = canonical;
  return QEN_TString(host);
}
