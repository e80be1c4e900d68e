#include "Collector/StreamMessage.h"

#include <zlib.h>

#include <array>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Collector/Stream.h"

namespace zorvane::collector {

namespace {

constexpr std::size_t kMaxMetadata = 4u << 20;
// What a message may grow to. Its limit keeps a forged one from filling the memory.
constexpr std::size_t kMaxMessage = kMaxBodyBytes + kMaxMetadata + 1;
constexpr std::size_t kBlock = 64u << 10;

const char* nameOf(Service service) {
  return service == Service::Device ? "device" : "report";
}

Bytef* bytesOf(std::string_view text) {
  return reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));  // zlib does not write to its input
}

class Deflater {
 public:
  Deflater() {
    if (deflateInit(&stream_, Z_BEST_SPEED) != Z_OK) throw std::bad_alloc();
  }
  ~Deflater() { deflateEnd(&stream_); }
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;

  void add(std::string_view text, bool isLast) {
    stream_.next_in = bytesOf(text);
    stream_.avail_in = static_cast<uInt>(text.size());
    std::array<char, 4096> block;
    do {
      stream_.next_out = bytesOf({block.data(), block.size()});
      stream_.avail_out = block.size();
      deflate(&stream_, isLast ? Z_FINISH : Z_NO_FLUSH);
      result.append(block.data(), block.size() - stream_.avail_out);
    } while (stream_.avail_out == 0);
  }
  std::string result;

 private:
  z_stream stream_{};
};

std::string inflated(std::string_view payload) {
  z_stream stream{};
  stream.next_in = bytesOf(payload);
  stream.avail_in = static_cast<uInt>(payload.size());
  if (inflateInit(&stream) != Z_OK) throw std::bad_alloc();
  const std::unique_ptr<z_stream, decltype(&inflateEnd)> end(&stream, inflateEnd);
  std::string text;
  std::vector<char> block(kBlock);
  int code = Z_OK;
  while (code == Z_OK && text.size() <= kMaxMessage) {
    stream.next_out = bytesOf({block.data(), block.size()});
    stream.avail_out = kBlock;
    code = inflate(&stream, Z_NO_FLUSH);
    text.append(block.data(), kBlock - stream.avail_out);
  }
  if (code != Z_STREAM_END || stream.avail_in != 0) throw BadRequest("it is no zlib stream of a request");
  return text;
}

}  // namespace

std::string encodeMessage(const RequestRow& row, const std::string& body) {
  json metadata = {{"received_at", row.receivedAt.value_or(timeNow())},
                   {"service", nameOf(row.service)},
                   {"app_id", row.appID},
                   {"status", row.status},
                   {"signed", row.signature == Signature::Good},
                   {"headers", row.headers}};
  if (row.injected) metadata["injected"] = *row.injected;
  const std::string line = jsonText(metadata) + "\n";
  if (line.size() > kMaxMetadata) throw StreamError("the headers are too large for the stream", true);
  Deflater deflater;
  deflater.add(line, false);
  deflater.add(body, true);
  return std::move(deflater.result);
}

StreamMessage decodeMessage(std::string_view payload) {
  std::string text = inflated(payload);
  const std::size_t end = text.find('\n');
  if (end == std::string::npos) throw BadRequest("its metadata do not end");
  StreamMessage message;
  RequestRow& row = message.row;
  try {
    const json metadata = json::parse(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end));
    const std::string service = metadata.at("service").get<std::string>();
    if (service != "report" && service != "device") throw BadRequest("it is for no known service");
    row.service = service == "device" ? Service::Device : Service::Report;
    row.receivedAt = metadata.at("received_at").get<std::string>();
    row.appID = metadata.at("app_id").get<std::string>();
    row.status = metadata.at("status").get<int>();
    row.signature = metadata.at("signed").get<bool>() ? Signature::Good : Signature::None;
    row.headers = metadata.at("headers").get<std::string>();
    row.injected = textOf(metadata, "injected");
  } catch (const json::exception& error) {
    throw BadRequest(std::string("its metadata are not readable: ") + error.what());
  }
  message.body = text.substr(end + 1);
  row.bytes = message.body.size();
  return message;
}

std::optional<std::string> messageID(const RequestRow& row) {
  if (!row.bid) return std::nullopt;
  return hexDigest("SHA256", row.appID + '\0' + *row.bid);
}

}  // namespace zorvane::collector
