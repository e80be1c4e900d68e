#include "PostgreSQLServer.h"

#include <pwd.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

namespace {

std::unique_ptr<ChildProcess> run(const std::string& program, const std::vector<std::string>& arguments) {
  // It refuses to run as root.
  std::vector<std::string> all{"--pdeathsig=QUIT"};
  if (::geteuid() == 0) all.insert(all.end(), {"--reuid=postgres", "--regid=postgres", "--clear-groups"});
  all.push_back(ZR_POSTGRESQL_FOLDER "/" + program);
  all.insert(all.end(), arguments.begin(), arguments.end());
  return std::make_unique<ChildProcess>("/usr/bin/setpriv", all);
}

}  // namespace

PostgreSQLServer::PostgreSQLServer() {
  char name[] = "/tmp/zrcollector-postgresql-XXXXXX";
  if (!::mkdtemp(name)) throw std::runtime_error("no folder");
  folder_ = name;
  const passwd* const user = ::getpwnam("postgres");
  if (::geteuid() == 0 && (!user || ::chown(name, user->pw_uid, user->pw_gid) != 0))
    throw std::runtime_error("no user");
  const auto made = run("initdb", {"--pgdata=" + folder_ + "/data", "--username=postgres", "--auth=trust",
                                   "--encoding=UTF8", "--locale=C", "--no-sync"});
  while (made->readLine()) {
  }
  if (made->wait() != 0) throw std::runtime_error("initdb failed");
  start();
}

PostgreSQLServer::~PostgreSQLServer() {
  stop();
  std::filesystem::remove_all(folder_);
}

void PostgreSQLServer::start() {
  server_ = run("postgres", {"-D", folder_ + "/data", "-k", folder_, "-c", "listen_addresses=", "-c", "fsync=off", "-c",
                             "shared_buffers=16MB"});
  std::string last;
  while (const auto line = server_->readLine()) {
    if (line->find("ready to accept connections") != std::string::npos) return;
    last = *line;
  }
  throw std::runtime_error("the server did not start: " + last);
}

void PostgreSQLServer::stop() {
  if (!server_) return;
  server_->send(SIGQUIT);
  while (server_->readLine()) {
  }
  server_->wait();
  server_.reset();
}

std::string PostgreSQLServer::url() const {
  std::string host;
  for (const char c : folder_) host += c == '/' ? "%2F" : std::string(1, c);
  return "postgresql://postgres:secret@" + host + "/postgres";
}

std::vector<const char*> testEngines() {
  if (std::string(ZR_POSTGRESQL_FOLDER).empty()) return {"SQLite"};
  return {"SQLite", "PostgreSQL"};
}
