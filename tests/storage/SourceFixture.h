#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "elements/BuiltinElements.h"
#include "qel/WorkflowStepImplementation.h"
#include "storage-server/StorageServer.h"
#include "support/ClipMaker.h"
#include "support/Files.h"
#include "support/TempFolder.h"

// A storage source as the framework makes it, and what tests say about it.
namespace Moravel::Test {

class SourceUnderTest {
 public:
  SourceUnderTest() {
    qel::RegisterBuiltinElements();
    std::tie(media, control, std::ignore) =
        qel::ImplementElement<qel::ElementFactoryType_Source>("qel.StorageSource", "storage", {});
  }

  void Init(int64_t port, int64_t track = 1, const std::string& unixDomainSocket = "",
            const std::string& address = "127.0.0.1") {
    const auto config = CreateParametersCollectionInstance(qel::GetInitConfigPrototype(
        qel::ElementFactoryType_Source, "qel.StorageSource", "storage"));
    config->SetParamUTF8String("tcp_address", address);
    config->SetParamUTF8String("unix_domain_socket", unixDomainSocket);
    config->SetParamInt64("tcp_port", port);
    config->SetParamInt64("track_id", track);
    config->SetParamInt64("connect_timeout_ms", timeoutMs);
    config->SetParamInt64("stall_timeout_ms", timeoutMs);
    for (const auto& [key, value] : limits)
      config->SetParamInt64(key, value);
    media->SetInitConfig(config);
  }
  void Update(const std::string& key, int64_t value) {
    const auto config = CreateParametersCollectionInstance(qel::GetUpdateConfigPrototype(
        qel::ElementFactoryType_Source, "qel.StorageSource", "storage"));
    config->SetParamInt64(key, value);
    control->UpdateConfig(config);
  }
  qel::MediaTime Goto(int64_t number, uint32_t numerator = 25, uint32_t denominator = 1) {
    return control->GotoTimeOffset({qel::EditRate(numerator, denominator), number, nullptr},
                                   "source");
  }
  qel::SampleContainerConstPtr Read(int64_t number) {
    Goto(number);
    return media->GetSample();
  }

  int64_t timeoutMs = 5000;
  std::map<std::string, int64_t> limits;  // others of the initial configuration
  qel::MediaSourcePtr media;
  qel::SourceControlPtr control;
};

inline std::vector<uint8_t> Bytes(const qel::SampleConstPtr& sample) {
  const auto data = sample->GetData();
  return {data->GetInnerBuffer(), data->GetInnerBuffer() + data->GetDataSize()};
}

// The bytes of a container's samples one after the other; none of an empty handle.
inline std::vector<uint8_t> AllBytes(const qel::SampleContainerConstPtr& container) {
  std::vector<uint8_t> all;
  for (const auto& sample : container ? container->GetAllSamples() : qel::SampleList()) {
    const auto bytes = Bytes(sample);
    all.insert(all.end(), bytes.begin(), bytes.end());
  }
  return all;
}

// With other bytes at that distance from the first place of the text.
inline std::vector<uint8_t> Patched(std::vector<uint8_t> bytes, std::string_view text,
                                    ptrdiff_t distance, const std::vector<uint8_t>& with) {
  const auto at = std::search(bytes.begin(), bytes.end(), text.begin(), text.end());
  std::copy(with.begin(), with.end(), at + distance);
  return bytes;
}

// The text of the framework error that the action throws; empty when it throws none.
template <typename Action>
std::string ErrorOf(Action action) {
  try {
    action();
  } catch (const qel::QELRuntimeError& error) {
    return error.what();
  }
  return "";
}

// An error with that in it; none at all when it is empty.
inline ::testing::Matcher<std::string> Says(const std::string& text) {
  if (text.empty())
    return ::testing::IsEmpty();
  return ::testing::HasSubstr(text);
}

}  // namespace Moravel::Test
