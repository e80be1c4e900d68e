#include "Platform/HostServices.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

namespace zorvane::platform {
namespace {

TEST(HostServices, WhatTheHostLeavesOutHasADefault) {
  setenv("XDG_DATA_HOME", "relative/is/ignored", 1);
  setenv("HOME", "/home/somebody", 1);
  HostServices given;
  given.clock = std::make_shared<SystemClock>();
  given.directories.library = "/library";
  ASSERT_TRUE(configureHost({}));
  ASSERT_TRUE(configureHost(given)) << "until the first use the last word counts";
  const HostServices& services = hostServices();
  EXPECT_EQ(services.clock, given.clock);
  EXPECT_TRUE(services.scheduler && services.notificationCenter && services.application && services.locale &&
              services.timeZone);
  EXPECT_FALSE(services.advertising);
  EXPECT_EQ(services.application->state(), ApplicationState::Active);
  EXPECT_EQ(services.directories.library, "/library");
  EXPECT_EQ(services.directories.documents, "/home/somebody/.local/share/zorvane/Documents");
  EXPECT_FALSE(configureHost({}));
  EXPECT_EQ(&hostServices(), &services);
  EXPECT_EQ(services.clock, given.clock);
}

TEST(HostServices, DirectoriesFollowTheEnvironmentAndRelativeOnesTheCurrentFolder) {
  setenv("XDG_DATA_HOME", "/data", 1);
  HostServices given;
  given.directories.library = "shop/Library";
  ASSERT_EQ(chdir("/tmp"), 0);
  ASSERT_TRUE(configureHost(given));
  ASSERT_EQ(chdir("/"), 0);
  EXPECT_EQ(hostServices().directories.defaults, "/data/zorvane/Defaults");
  EXPECT_EQ(hostServices().directories.library, "/tmp/shop/Library") << "where the process was then";
}

}  // namespace
}  // namespace zorvane::platform
