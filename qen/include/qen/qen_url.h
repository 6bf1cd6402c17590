// QEN_TURL: a URL taken apart into protocol, user, password, host, port,
// path, parameters and fragment.
//
// Text form
//   protocol ":" [ "//" [ user [ ":" password ] "@" ] host [ ":" port ] ] path
//            [ "?" key "=" value { "&" key "=" value } ] [ "#" fragment ]
//
// Parsing accepts any text and always gives a URL; the work is linear in the
// length of the text. The rules, in order:
//   - The protocol is a letter followed by letters, digits, '+', '-' or '.',
//     ended by ':'. It is kept in lower case. A single letter is no protocol
//     but a drive letter: "C:/jobs/a.tif" is a path without a protocol.
//   - Everything behind the first '#' is the fragment, and everything
//     between the first '?' and the fragment is the query.
//   - "//" after the protocol (or at the start, without one) opens the
//     authority, which runs to the next '/'. The user part ends at its last
//     '@' and splits at its first ':' into user and password. A port is the
//     digits behind the last ':' of the rest (up to 65535; anything else
//     there belongs to the host). A host in brackets ("[::1]") keeps them.
//   - The path is the rest. "file" and "embed" URLs always have an authority,
//     empty when none is written, so "file:/a" and "file:///a" are one URL.
//   - The query splits at '&' into parameters, each at its first '=' into
//     key and value; an empty piece is skipped, a piece without '=' is a key
//     with an empty value, and of a key given twice the last value counts
//     (in the place of the first).
//   - Every part is held decoded: "%XX" gives the byte XX, the bytes are
//     UTF-8 (ill-formed bytes give U+FFFD). A '%' that isn't followed by two
//     hex digits stands for itself. '+' is a plus, not a blank. "%2F" in a
//     path is a '/' like any other.
//
// Writing (AsString) encodes each part so that the text parses back to the
// same parts: '%', blanks, non-ASCII characters (as UTF-8 bytes) and the
// characters that would end the part become "%XX" with upper-case hex
// digits. Parameter keys and values keep only letters, digits, '*', '-',
// '.' and '_'. A ':' in the first segment of a path without protocol is
// encoded, so that it doesn't read as one.
//
// Relative resolution follows the usual rules for URL references: a
// reference with a protocol stands alone; one with an authority takes the
// base's protocol; an empty path keeps the base's path (and its parameters
// unless the reference has a query); a path starting with '/' replaces the
// base's path; any other path replaces the base's last segment. "." and ".."
// segments of the result are then removed. A reference text is parsed as
// above, so a blank or a lone '%' in it is just a character.
//
// Paths. PathName() is the path up to its last '/', FileName() what follows
// it; a URL of a folder ends in '/' and has an empty file name. LocalPath()
// is the decoded path; a host other than "" or "localhost" gives the network
// form "//host/path". LocalToURL() is its inverse and makes a relative path
// absolute against the current directory.
//
// Equality compares all parts; the protocol is compared exactly (it is held
// in lower case), the host without regard to ASCII case, and the parameters
// as a set of key/value pairs, regardless of their order.
#ifndef QEN_URL_H
#define QEN_URL_H

#include <string>
#include <utility>
#include <vector>

#include "qen/qen_containers.h"
#include "qen/qen_object.h"
#include "qen/qen_string.h"
#include "qen/qen_value.h"

class QEN_API QEN_TURL : public QEN_TObject,
                         public virtual QEN_IPackable,
                         public virtual QEN_IHumanReadable,
                         public virtual QEN_IPrintable {
  QEN_VALUE_FRAME(QEN_TURL)

 public:
  // An empty URL: no protocol, no path.
  QEN_TURL();
  // Parses URL text.
  QEN_TURL(const QEN_TString& text);
  // The reference `relative` resolved against `base`.
  QEN_TURL(const QEN_TURL& base, const QEN_TString& relative);
  // A URL from its parts, in this order: protocol, host, path, query, port,
  // user, password. `path` and `query` are taken as they stand in URL text,
  // as PathString() and Query() give them; the host, user and password as
  // Host(), User() and Password() give them. `port` 0 means none. So
  //   QEN_TURL("file", url.Host(), url.PathString(), "", 0, "", "")
  // is the plain "file" URL of the same place as `url`.
  QEN_TURL(const QEN_TString& protocol, const QEN_TString& host, const QEN_TString& path,
           const QEN_TString& query, unsigned port, const QEN_TString& user,
           const QEN_TString& password);
  QEN_VALUE_COPY_MOVE(QEN_TURL)

  // No protocol, authority, path, parameters or fragment.
  bool Empty() const;

  const QEN_TString& Protocol() const { return mProtocol; }
  QEN_TURL& SetProtocol(const QEN_TString& protocol);
  const QEN_TString& Host() const { return mHost; }
  QEN_TURL& SetHost(const QEN_TString& host);
  unsigned Port() const { return mPort; }
  QEN_TURL& SetPort(unsigned port);
  const QEN_TString& User() const { return mUser; }
  const QEN_TString& Password() const { return mPassword; }
  QEN_TURL& SetUser(const QEN_TString& user, const QEN_TString& password);
  const QEN_TString& Fragment() const { return mFragment; }
  QEN_TURL& SetFragment(const QEN_TString& fragment);

  // The last segment of the path, decoded.
  QEN_TString FileName() const;
  // The path of the folder, decoded, without the file name and without the
  // '/' before it.
  QEN_TString PathName() const;
  // The decoded path for the platform's file calls: folder and file name.
  QEN_TString LocalPath() const;
  // The path as it stands in the URL text (encoded); empty for an empty URL.
  QEN_TString PathString() const;
  // The URL of the folder that holds the file, without parameters.
  QEN_TURL Folder() const;
  // Sets the folder path (decoded); the file name stays.
  QEN_TURL& SetPathName(const QEN_TString& pathName);
  // Sets the file name (decoded); an empty one leaves the URL of the folder.
  QEN_TURL& SetFileName(const QEN_TString& fileName);
  // Sets the whole path (decoded).
  QEN_TURL& SetPath(const QEN_TString& path);

  // Parameters, decoded.
  QEN_TDict ParamDict() const;
  QEN_TURL& SetParamDict(const QEN_TDict& params);
  bool GetParam(const QEN_TString& key, QEN_TString& value) const;
  bool HasParam(const QEN_TString& key) const;
  // The value, or the empty string for a missing key.
  QEN_TString Param(const QEN_TString& key) const;
  QEN_TURL& SetParam(const QEN_TString& key, const QEN_TString& value);
  bool RemoveParam(const QEN_TString& key);
  unsigned ParamCount() const { return static_cast<unsigned>(mParams.size()); }
  // Replaces all parameters by those of the query text ("k=v&k2=v2", encoded;
  // a leading '?' is allowed).
  QEN_TURL& SetQuery(const QEN_TString& query);
  // The query text as it stands in the URL, without '?'.
  QEN_TString Query() const;

  // The whole URL as text.
  QEN_TString AsString() const;

  // Decodes "%XX" escapes; see the rules above.
  static QEN_TString HexDecode(const QEN_TString& text);
  // The coding of parameters: letters, digits and "*-._" stay, every other
  // UTF-8 byte becomes "%XX".
  static QEN_TString HexEncode(const QEN_TString& text);
  // The "file" URL of a local path.
  static QEN_TURL LocalToURL(const QEN_TString& localPath);

  QEN_VALUE_EQUALITY(QEN_TURL)

  // Binary form: the URL text, packed as a string. Text form: the URL text,
  // quoted as a string. Printed: the URL text.
  QEN_VALUE_FORMS

 private:
  struct Parsed;
  typedef std::vector<std::pair<QEN_TString, QEN_TString>> Params;

  void Assign(Parsed&& parsed);
  void Normalize();
  std::size_t FindParam(const QEN_TString& key) const;

  QEN_TString mProtocol;
  QEN_TString mUser;
  QEN_TString mPassword;
  QEN_TString mHost;
  unsigned mPort = 0;
  // "//" stands in the text, even with an empty host.
  bool mHasAuthority = false;
  QEN_TString mPath;
  Params mParams;
  QEN_TString mFragment;
};

#endif
