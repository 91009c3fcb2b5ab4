// SPDX-License-Identifier: Apache-2.0
#include "platform/network/CurlCommon.h"

#include "platform/network/NetworkError.h"

namespace zaffo::network {

namespace {

struct Meaning {
  URLError code;
  const char* text;  // behind 'The server "host" '
  bool mayPass;
};

Meaning meaningOf(CURLcode code) {
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return {NSURLErrorCannotFindHost, "cannot be found.", true};
    case CURLE_COULDNT_CONNECT:
      return {NSURLErrorCannotConnectToHost, "cannot be reached.", true};
    case CURLE_OPERATION_TIMEDOUT:
      return {NSURLErrorTimedOut, "did not answer in time.", true};
    case CURLE_SSL_CONNECT_ERROR:
      return {NSURLErrorSecureConnectionFailed, "offers no secure connection.", true};
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
      return {NSURLErrorServerCertificateUntrusted, "has a certificate that is not trusted.",
              false};
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      return {NSURLErrorNetworkConnectionLost, "closed the connection midway.", true};
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT:
      return {NSURLErrorUnsupportedURL, "has an address that cannot be used.", false};
    default:
      return {NSURLErrorBadServerResponse, "gave an answer that cannot be understood.", false};
  }
}

}  // namespace

CurlFailure curlFailure(CURLcode code, const std::string& host) {
  const Meaning meaning = meaningOf(code);
  const NSErrorPtr underlying =
      NSError::create("libcurl", code, {{NSLocalizedDescriptionKey, curl_easy_strerror(code)}});
  return {networkError(meaning.code, "The server \"" + host + "\" " + meaning.text, underlying),
          meaning.mayPass};
}

}  // namespace zaffo::network
