// http.h: the requests of a browser to a page that zqtool serves, as far as such a page needs them (RFC 9112).
#pragma once

#include <string>
#include <string_view>

/// Statuses of an answer (RFC 9110; the last one RFC 6585).
inline constexpr int HTTP_OK = 200;
inline constexpr int HTTP_BAD_REQUEST = 400;
inline constexpr int HTTP_FORBIDDEN = 403;
inline constexpr int HTTP_NOT_FOUND = 404;
inline constexpr int HTTP_BAD_METHOD = 405;
inline constexpr int HTTP_TOO_LARGE = 431;

/// Returns whether a request holds its whole head.
bool HttpIsComplete(std::string_view sRequest);

/// Checks the head of a request to this machine's port. Returns HTTP_OK and sets sTarget, or returns the status that
/// refuses it. Accepts only GET, with one host. Refuses a host or an origin that does not name the loopback address and
/// iPort: another name that leads here belongs to a foreign page. A host or an origin may leave out port 80, because
/// browsers do so. Does not check that the head is whole (HttpIsComplete).
int HttpCheck(std::string_view sRequest, int iPort, std::string & sTarget);

/// Returns an answer after which the connection ends. The client keeps nothing of it and shows it to no other page.
/// Requires one of the statuses above, a media type without parameters and a body in UTF-8.
std::string HttpAnswer(int iStatus, std::string_view sType, std::string_view sBody);
