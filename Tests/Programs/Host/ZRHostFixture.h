// A test that runs zrhost over a container of its own against a service of its own.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "HostRun.h"
#include "Support/TemporaryDirectory.h"

class ZRHost : public testing::Test {
 protected:
  std::vector<std::string> arguments(std::vector<std::string> more = {}) const {
    std::vector<std::string> all{"--data",  directory_.file("app"),    "--endpoint", service_.url(),
                                 "--clock", "2026-11-21T10:00:00.000Z"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
  HostResult run(const std::vector<std::string>& script, const std::vector<std::string>& withArguments) const {
    HostProcess host(withArguments, directory_.file("stderr"));
    for (const std::string& line : script) host.write(line);
    HostResult result = host.finish();
    EXPECT_THAT(result.errors, testing::Not(testing::HasSubstr("Sanitizer")));
    return result;
  }
  HostResult run(const std::vector<std::string>& script) const { return run(script, arguments()); }
  std::string fileWith(const std::string& name, const std::string& text) const {
    std::ofstream(directory_.file(name)) << text;
    return directory_.file(name);
  }
  std::vector<Json> linesOf(const std::string& path) const {
    std::vector<Json> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) lines.push_back(Json::parse(line));
    return lines;
  }

  zorvane::platform::TemporaryDirectory directory_;
  FakeService service_;
};
