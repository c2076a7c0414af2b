// How processes come and go: the service with its clients, clients that die, a bench that is lost.
#include <signal.h>

#include <filesystem>

#include "tests/system/harness.h"

namespace system_test {
namespace {

using Lifetime = SystemTest;

TEST_F(Lifetime, WithoutRegistrationThereIsNoService) {
  ASSERT_NO_FATAL_FAILURE(Install());
  const Finished version = Wfx({"version", "--json"});
  EXPECT_EQ(version.exit_status, 3);
  EXPECT_NE(version.out.find("\"error\":\"UNREACHABLE\""), std::string::npos) << version.out;
  EXPECT_NE(version.err.find("not registered"), std::string::npos) << version.err;
  const Finished service = Run({service_path()});
  EXPECT_EQ(service.exit_status, 2);
}

TEST_F(Lifetime, AClientStartsTheServiceAndItsEndEndsTheService) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  EXPECT_TRUE(ServicePids().empty());
  auto first = Hold();
  EXPECT_EQ(ServicePids().size(), 1u);
  auto second = Hold();
  EXPECT_EQ(ServicePids().size(), 1u);
  first->Interrupt();
  EXPECT_EQ(first->Wait(), 0);
  EXPECT_EQ(Wfx({"version"}).exit_status, 0);
  EXPECT_EQ(ServicePids().size(), 1u);
  second->Terminate();
  EXPECT_EQ(second->Wait(), 0);
  EXPECT_TRUE(ServiceEnds());
}

TEST_F(Lifetime, ClientsThatStartTogetherGetOneService) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 6; ++i) clients.push_back(StartWfx({"hold"}));
  for (const auto& client : clients) EXPECT_TRUE(client->ReadLine());
  EXPECT_EQ(ServicePids().size(), 1u);
}

TEST_F(Lifetime, UnregistrationTakesTheServiceAway) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  kill(ServicePids().at(0), SIGKILL);
  EXPECT_EQ(hold->Wait(), 3);
  EXPECT_EQ(Run({service_path(), "/unregserver"}).exit_status, 0);
  for (const char* name : {"dbus-1", "registry", "registry.lock", "run"}) {
    EXPECT_FALSE(std::filesystem::exists(home() / name)) << name;
  }
  EXPECT_EQ(Wfx({"version"}).exit_status, 3);
}

TEST_F(Lifetime, AKilledServiceIsNoticedByItsClientsAndOneThatCannotBeStartedIsReported) {
  ASSERT_NO_FATAL_FAILURE(InstallAll());
  const auto hold = Hold();
  const auto watch = StartWfx({"watch"});
  ASSERT_TRUE(watch->ReadLine());
  ASSERT_EQ(ServicePids().size(), 1u);
  kill(ServicePids()[0], SIGKILL);
  EXPECT_EQ(hold->Wait(), 3);
  EXPECT_EQ(watch->Wait(), 3);
  std::filesystem::remove(service_path());
  const Finished version = Wfx({"version"});
  EXPECT_EQ(version.exit_status, 3);
  EXPECT_NE(version.err, "");
}

TEST_F(Lifetime, AClientKilledInACallLeavesTheServiceToOthersAndItsTargetToTheSweep) {
  const std::string log = home() / "service.log";
  ASSERT_NO_FATAL_FAILURE(Begin(std::string("LOGFILE=") + log + "\nLOGLEVEL=8\n"));
  const auto victim = StartCallThatStays(log);
  victim->Kill();
  EXPECT_EQ(victim->Wait(), 128 + SIGKILL);
  EXPECT_EQ(Json({"targets", "WFX0001"})["devices"], Words({"1BA014771", "0684617F0"}));
  EXPECT_EQ(Wfx({"mode", "WFX0001", "JTAG"}).exit_status, 11);
  EXPECT_EQ(Json({"list"})["error"], "SUCCESS");
  EXPECT_EQ(Json({"targets", "WFX0001"})["devices"], Words({"1BA014770", "0684617F0"}));
}

TEST_F(Lifetime, ProbesGoWithABenchThatStopsAnsweringAndComeBackWithIt) {
  ASSERT_NO_FATAL_FAILURE(Begin());
  kill(bench->id(), SIGSTOP);
  EXPECT_TRUE(ProbesBecome({}));
  kill(bench->id(), SIGCONT);
  EXPECT_TRUE(ProbesBecome(kAllProbes));
}

TEST_F(Lifetime, ProbesGoWithAKilledBenchAndComeBackWithTheNext) {
  ASSERT_NO_FATAL_FAILURE(Begin());
  bench->Kill();
  EXPECT_TRUE(ProbesBecome({}));
  EXPECT_EQ(Wfx({"status", "WFX0002"}).exit_status, 15);
  ASSERT_NO_FATAL_FAILURE(StartBench());
  EXPECT_TRUE(ProbesBecome(kAllProbes));
  EXPECT_EQ(Wfx({"status", "WFX0002"}).exit_status, 0);
}

}  // namespace
}  // namespace system_test
