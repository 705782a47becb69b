#include "Framework.h"
#include "qel/WorkflowStepImplementation.h"

namespace Moravel::Test {

constexpr auto kSource = qel::ElementFactoryType_Source;
const std::pair<int, std::string> kMilestone(qel::QEL_TRACE,
                                             "[MILESTONE][ImplementElement Source.name.kind]");

class ElementTest : public LibraryTest {
 protected:
  static qel::SourceInstance Implement() {
    return qel::ImplementElement<kSource>("name", "kind", nullptr);
  }
  static void Set(std::shared_ptr<qel::IElementFactory> factory, bool hasManifest = true) {
    const auto none = std::make_shared<qel::ParametersCollectionPrototype>(
        qel::ParametersCollectionPrototype::ParameterMap());
    const auto manifest = hasManifest ? none->CreateInstance() : nullptr;
    qel::RegisterElement("name", "kind", {std::move(factory), manifest, none, none});
  }
  static void ExpectCanNotImplement(const std::string& cause) {
    EXPECT_EQ(ErrorOf(Implement),
              "can not implement Source with implementation=\"name\" and type=\"kind\"\n" + cause);
  }
};

TEST_F(ElementTest, ImplementsWhatIsRegisteredOrSaysWhyNot) {
  struct Other : qel::IElementFactory {
    qel::ElementFactoryType GetFactoryType() override { return kSource; }
  };
  using Factory = qel::ElementFactory<kSource>;
  ExpectCanNotImplement("[registryEntry] [ Pointer is null ]");
  Set(std::make_shared<Other>());
  ExpectCanNotImplement("[factory] [ Pointer is null ]");
  Set(std::make_shared<Factory>(
      [](auto) -> qel::SourcePtr { throw std::runtime_error("no such device"); }));
  ExpectCanNotImplement("no such device");
  Set(std::make_shared<Factory>(nullptr));
  EXPECT_THROW(Implement(), std::bad_function_call) << "others pass";
  Set(std::make_shared<Factory>(nullptr), false);
  ExpectCanNotImplement("[manifest] [ Pointer is null ]");
  const auto element = std::make_shared<Source>();
  Set(std::make_shared<Factory>([&](auto) { return element; }));
  frameworkLog_.clear();
  EXPECT_EQ(Implement(), qel::SourceInstance(element, element, element));
  EXPECT_THAT(frameworkLog_, testing::ElementsAre(kMilestone));
}

TEST_F(ElementTest, ParametersHaveKeysTypesAndDefaults) {
  using Prototype = qel::ParametersCollectionPrototype;
  using enum Prototype::Type;
  const auto prototype = std::make_shared<Prototype>(
      Prototype::ParameterMap{{"number", {Int64}}, {"text", {UTF8String, std::string("default")}}});
  const auto config = qel::CreateParametersCollectionInstance(prototype);
  EXPECT_EQ(config->GetParamInt64("number"), std::nullopt);
  EXPECT_EQ(config->GetParamUTF8String("text"), "default");
  config->SetParamInt64("number", 7);
  config->SetParamUTF8String("text", "mine");
  for (const auto& [key, error] : std::map<std::string, std::string>{
           {"number", "parameter \"number\" is an int64, not a FourCC"},
           {"text", "parameter \"text\" is a string, not a FourCC"},
           {"none", "there is no parameter \"none\"; there are \"number\", \"text\""}}) {
    EXPECT_EQ(ErrorOf([&] { config->SetParamFourCC(key, qel::FourCC_I420); }), error);
    EXPECT_EQ(ErrorOf([&] { config->GetParamFourCC(key); }), error);
  }
  EXPECT_EQ(config->GetParamInt64("number"), 7);
  EXPECT_EQ(config->GetParamUTF8String("text"), "mine");
  EXPECT_EQ(prototype->CreateInstance()->GetParamUTF8String("text"), "default");
}

TEST_F(ElementTest, AWriterIsGivenTheTextsInTheirOrder) {
  struct Writer : qel::ILoggerWriter {
    void WriteLog(qel::LogLevel level, const char* message, const char* context, const char* file,
                  const char*, const char* reserved, const char* threadId, const char*) override {
      texts_ = {qel::ToString(level), message, context, file, reserved, threadId};
    }
    std::vector<std::string> texts_;
  };
  const auto writer = std::make_shared<Writer>();
  qel::SetCurrentLoggerWriter(writer);
  const qel::MilestonePtr milestone = qel::CreateMilestone("context");
  QEL_LOG(qel::QEL_WARNING, "number " << 1000);
  EXPECT_THAT(writer->texts_,
              testing::ElementsAre(qel::ToString(qel::QEL_WARNING), "number 1000",
                                   qel::GetCurrentContextString(), "library/ElementTest.cpp", "",
                                   qel::GetThreadId()));
}

TEST_F(ElementTest, WithoutAWorkingWriterLinesGoToStandardError) {
  struct BrokenWriter : qel::ILoggerWriter {
    void WriteLog(qel::LogLevel, const char*, const char*, const char*, const char*, const char*,
                  const char*, const char*) override {
      throw 1;
    }
  };
  for (const std::shared_ptr<qel::ILoggerWriter>& writer :
       {std::shared_ptr<qel::ILoggerWriter>(), {std::make_shared<BrokenWriter>()}}) {
    qel::SetCurrentLoggerWriter(writer);
    testing::internal::CaptureStderr();
    EXPECT_EQ(ErrorOf([] { QEL_CHECK_CONDITION(1 > 2, "size " << 3000); }),
              "[size 3000] [ Condition is not true ]");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR [size 3000] [ Condition is not true ]\n");
  }
}

}  // namespace Moravel::Test
