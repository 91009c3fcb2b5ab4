// SPDX-License-Identifier: Apache-2.0

// A real server: TLS under an authority of the test's own, HTTP/2, ranges on and off, a limited
// rate.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "doubles/FaultServer.h"
#include "platform/dispatch/Asio.h"
#include "platform/network/NetworkError.h"
#include "platform/network/RemoteBytes.h"

#include <asio/ip/tcp.hpp>

namespace zaffo::network {
namespace {

namespace fs = std::filesystem;

/// A port that nobody listens at, most likely for a while.
int freePort() {
  asio::io_context context;
  const asio::ip::tcp::endpoint any(asio::ip::address_v4::loopback(), 0);
  return asio::ip::tcp::acceptor(context, any).local_endpoint().port();
}

bool isListening(int port) {
  asio::io_context context;
  asio::ip::tcp::socket socket(context);
  asio::error_code error;
  const auto number = static_cast<asio::ip::port_type>(port);
  socket.connect({asio::ip::address_v4::loopback(), number}, error);
  return !error;
}

std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Where the server lies, and whether there is one at all.
std::string nginx() {
  for (const char* const path : {"/usr/sbin/nginx", "/usr/bin/nginx", "/usr/local/sbin/nginx"}) {
    if (access(path, X_OK) == 0) return path;
  }
  return {};
}

/// One nginx for all of these tests, in a folder of its own.
class Server {
 public:
  Server() : folder_(fs::temp_directory_path() / ("zaffo-nginx-" + std::to_string(getpid()))) {
    fs::create_directories(folder_ / "files");
    for (const char* const spool : {"body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
      fs::create_directories(folder_ / spool);
    }
    makeCertificates();
    std::ofstream(folder_ / "files/clip", std::ios::binary) << body;
    std::ofstream(folder_ / "nginx.conf") << configuration();
    start();
  }
  ~Server() {
    if (process_ > 0) {
      kill(process_, SIGTERM);
      waitpid(process_, nullptr, 0);
    }
    fs::remove_all(folder_);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  [[nodiscard]] URL secure(const std::string& path) const {
    return NSURL::URLWithString("https://localhost:" + std::to_string(securePort_) + path);
  }
  [[nodiscard]] URL plain(const std::string& path) const {
    return NSURL::URLWithString("http://localhost:" + std::to_string(plainPort_) + path);
  }
  [[nodiscard]] std::string authority() const { return (folder_ / "authority.pem").string(); }
  /// A line for each request that was answered: "protocol status connection".
  [[nodiscard]] std::string log() const { return readFile(folder_ / "access.log"); }
  [[nodiscard]] bool isUp() const { return isUp_; }

  const std::string body = patternedBytes(1'000'000);

 private:
  void makeCertificates() const {
    const std::string at = folder_.string();
    std::ofstream(folder_ / "names") << "subjectAltName=DNS:localhost\n";
    const std::string key = " -newkey rsa:2048 -nodes ";
    const std::string commands =
        "cd '" + at + "' && exec >/dev/null 2>&1 && " + "openssl req -x509" + key +
        "-keyout ca.key -out authority.pem -days 2 -subj /CN=Tests && " + "openssl req" + key +
        "-keyout server.key -out server.csr -subj /CN=localhost && " +
        "openssl x509 -req -in server.csr -CA authority.pem -CAkey ca.key -CAcreateserial " +
        "-days 2 -extfile names -out server.pem";
    static_cast<void>(std::system(commands.c_str()));
  }

  [[nodiscard]] std::string configuration() const {
    const std::string at = folder_.string();
    const auto replaced = [&](std::string text) {
      const auto put = [&](const std::string& mark, const std::string& value) {
        for (auto i = text.find(mark); i != std::string::npos; i = text.find(mark, i)) {
          text.replace(i, mark.size(), value);
        }
      };
      put("@AT@", at);
      put("@SECURE@", std::to_string(securePort_));
      put("@PLAIN@", std::to_string(plainPort_));
      return text;
    };
    return replaced(R"(daemon off; master_process off; pid @AT@/pid; error_log @AT@/error.log;
events {}
http {
  client_body_temp_path @AT@/body; proxy_temp_path @AT@/proxy; fastcgi_temp_path @AT@/fastcgi;
  uwsgi_temp_path @AT@/uwsgi; scgi_temp_path @AT@/scgi;
  log_format short '$server_protocol $status $connection'; access_log @AT@/access.log short;
  root @AT@/files;
  server {
    listen 127.0.0.1:@PLAIN@; listen 127.0.0.1:@SECURE@ ssl http2;
    ssl_certificate @AT@/server.pem; ssl_certificate_key @AT@/server.key;
    location = /whole { alias @AT@/files/clip; max_ranges 0; }
    location = /slow { alias @AT@/files/clip; limit_rate 2m; }
    location = /down { return 302 http://localhost:@PLAIN@/clip; }
    location = /up { return 301 https://localhost:@SECURE@/clip; }
  }
}
)");
  }

  void start() {
    const std::string program = nginx();
    const std::string file = (folder_ / "nginx.conf").string();
    const std::string log = (folder_ / "error.log").string();
    process_ = fork();
    if (process_ == 0) {
      const int null = open("/dev/null", O_WRONLY);
      dup2(null, STDERR_FILENO);
      execl(program.c_str(), "nginx", "-c", file.c_str(), "-e", log.c_str(), nullptr);
      _exit(127);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!(isUp_ = isListening(securePort_)) && std::chrono::steady_clock::now() < deadline) {
      if (waitpid(process_, nullptr, WNOHANG) == process_) {
        process_ = -1;
        return;
      }
      std::this_thread::yield();
    }
  }

  const fs::path folder_;
  const int plainPort_ = freePort(), securePort_ = freePort();
  pid_t process_ = -1;
  bool isUp_ = false;
};

/// A variable of the environment for the length of a scope.
class Environment {
 public:
  Environment(const char* name, const std::string& value) : name_(name) {
    if (const char* const former = getenv(name)) former_ = former;
    setenv(name, value.c_str(), 1);
  }
  ~Environment() { former_ ? setenv(name_, former_->c_str(), 1) : unsetenv(name_); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  const char* const name_;
  std::optional<std::string> former_;
};

class NginxTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!nginx().empty()) server = std::make_unique<Server>();
  }
  static void TearDownTestSuite() { server.reset(); }
  void SetUp() override {
    if (!server) GTEST_SKIP() << "nginx is not installed";
    ASSERT_TRUE(server->isUp());
  }

  /// A client that trusts the test's authority.
  static std::unique_ptr<HttpClient> trusting() {
    const Environment variable("SSL_CERT_FILE", server->authority());
    return std::make_unique<HttpClient>();
  }
  static HttpOptions options() { return quickOptions(); }

  static std::unique_ptr<Server> server;
  ByteBudget budget;
};
std::unique_ptr<Server> NginxTest::server;

TEST_F(NginxTest, ServesRangesOverOneConnectionOfHttp2) {
  const auto client = trusting();
  HttpResource clip(server->secure("/clip"), options(), *client, budget);
  EXPECT_EQ(bring(clip, 990'000, 10'000), server->body.substr(990'000)) << errorOf(clip);
  EXPECT_TRUE(areBytes(bringAll(clip), server->body)) << errorOf(clip);
  const std::string log = server->log();
  const auto first = log.find("HTTP/2.0 206 ");
  ASSERT_NE(first, std::string::npos) << log;
  const std::string line = log.substr(first, log.find('\n', first) - first);
  EXPECT_NE(log.find(line, first + 1), std::string::npos) << "another connection: " << log;
}

TEST_F(NginxTest, IsTrustedByNobodyWithoutItsAuthority) {
  HttpClient client;
  HttpResource clip(server->secure("/clip"), options(), client, budget);
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_EQ(errorOf(clip), "The server \"localhost\" has a certificate that is not trusted.");
  EXPECT_EQ(clip.error()->code(), NSURLErrorServerCertificateUntrusted);
}

TEST_F(NginxTest, IsTrustedUnderItsOwnNamesAlone) {
  const auto client = trusting();
  const std::string address = server->secure("/clip")->absoluteString();
  const URL other = NSURL::URLWithString("https://127.0.0.1" + address.substr(17));
  HttpResource clip(other, options(), *client, budget);
  EXPECT_EQ(bringAll(clip), "");
  EXPECT_EQ(errorOf(clip), "The server \"127.0.0.1\" has a certificate that is not trusted.");
}

TEST_F(NginxTest, IsTrustedThroughTheBundleOfTheEnvironmentToo) {
  const Environment none("SSL_CERT_FILE", "");
  const Environment variable("CURL_CA_BUNDLE", server->authority());
  HttpClient client;
  HttpResource clip(server->secure("/clip"), options(), client, budget);
  EXPECT_TRUE(areBytes(bringAll(clip), server->body)) << errorOf(clip);
}

TEST_F(NginxTest, ServesWithoutRanges) {
  HttpResource clip(server->plain("/whole"), options(), HttpClient::shared(), budget);
  EXPECT_TRUE(areBytes(bring(clip, 990'000, 10'000), server->body.substr(990'000)));
  EXPECT_TRUE(areBytes(bringAll(clip), server->body)) << errorOf(clip);
}

TEST_F(NginxTest, LeadsToASecureAddressButToNoInsecureOne) {
  const auto client = trusting();
  HttpResource up(server->plain("/up"), options(), *client, budget);
  EXPECT_TRUE(areBytes(bringAll(up), server->body)) << errorOf(up);
  HttpResource down(server->secure("/down"), options(), *client, budget);
  EXPECT_EQ(bringAll(down), "");
  EXPECT_EQ(errorOf(down), "The server led from a secure address to an insecure one.");
  HttpOptions allowing = options();
  allowing.rules.allowsInsecure = true;
  HttpResource allowed(server->secure("/down"), allowing, *client, budget);
  EXPECT_TRUE(areBytes(bringAll(allowed), server->body)) << errorOf(allowed);
}

TEST_F(NginxTest, IsMeasuredAtItsRate) {
  HttpClient client;
  HttpResource clip(server->plain("/slow"), options(), client, budget);
  EXPECT_TRUE(areBytes(bring(clip, 0, 900'000), server->body.substr(0, 900'000)));
  ASSERT_TRUE(client.bitsPerSecond());
  EXPECT_LT(*client.bitsPerSecond(), 60e6);
}

}  // namespace
}  // namespace zaffo::network
