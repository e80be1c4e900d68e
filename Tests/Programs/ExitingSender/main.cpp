// usage: ExitingSender URL CERTIFICATES NUMBER: sends requests, exits with status 7 after NUMBER responses.
#include <atomic>
#include <cstdlib>
#include <thread>

#include "Transport/CurlTransport.h"

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  zorvane::CurlTransportOptions options;
  options.certificateFile = argv[2];
  auto* transport = new zorvane::CurlTransport(options);
  static std::atomic<int> answered{0};
  for (int i = 0; i < 40; ++i) {
    transport->send({argv[1], {}, [] { return std::string(10'000, 'x'); }},
                    [](const zorvane::TransportResponse& response) { answered += response.status == 200 ? 1 : 1000; });
  }
  while (answered < std::atoi(argv[3])) std::this_thread::yield();
  std::exit(answered < 1000 ? 7 : 1);
}
