#include "CountedElements.h"

#include <utility>

namespace Moravel::Test {

std::atomic<int64_t> liveContainers = 0;
std::atomic<int64_t> madeContainers = 0;

namespace {

qel::SampleContainerConstPtr Count(qel::SampleContainerConstPtr container) {
  if (!container)
    return nullptr;
  ++madeContainers;
  ++liveContainers;
  const qel::ISampleContainer* const counted = container.get();
  return {counted, [container](const qel::ISampleContainer*) { --liveContainers; }};
}

class CountedSource : public qel::IMediaSource {
 public:
  explicit CountedSource(qel::MediaSourcePtr source) : source_(std::move(source)) {}
  void SetInitConfig(qel::ParametersCollectionInstanceConstPtr config) override {
    source_->SetInitConfig(config);
  }
  qel::InfoContainerConstPtr GetDefinedOutput(std::string name) override {
    return source_->GetDefinedOutput(name);
  }
  qel::SampleContainerConstPtr GetSample() override { return Count(source_->GetSample()); }

 private:
  const qel::MediaSourcePtr source_;
};

class CountedFilter : public qel::IMediaFilter {
 public:
  explicit CountedFilter(qel::MediaFilterPtr filter) : filter_(std::move(filter)) {}
  void SetInitConfig(qel::ParametersCollectionInstanceConstPtr config) override {
    filter_->SetInitConfig(config);
  }
  void DefineInput(qel::InfoContainerConstPtr input, std::string name) override {
    filter_->DefineInput(input, name);
  }
  qel::InfoContainerConstPtr GetDefinedInput(std::string name) override {
    return filter_->GetDefinedInput(name);
  }
  void PushSample(qel::SampleContainerConstPtr container) override {
    filter_->PushSample(container);
  }
  qel::SampleContainerConstPtr GetSample() override { return Count(filter_->GetSample()); }

 private:
  const qel::MediaFilterPtr filter_;
};

}  // namespace

qel::MediaSourcePtr Counted(qel::MediaSourcePtr source) {
  return std::make_shared<CountedSource>(std::move(source));
}

Player::QELDecoder Counted(Player::QELDecoder decoder) {
  return {std::make_shared<CountedFilter>(decoder.first), decoder.second};
}

}  // namespace Moravel::Test
