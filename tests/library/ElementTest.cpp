#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "LibraryTest.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

using fake::Lines;
using testing::ElementsAre;
using testing::EndsWith;

constexpr auto kSource = ElementFactoryType_Source;
using SourceFactory = ElementFactory<kSource>;

const char* const kHeader = "qel/WorkflowStepImplementation.h";
const fake::LogLine kMilestone = {QEL_TRACE, "[MILESTONE][ImplementElement label4.name.kind]",
                                  kHeader};
const fake::LogLine kEnd = {-1, "end of milestone", ""};

SourceInstance Implement() {
  return ImplementElement<kSource>("name", "kind", nullptr);
}

class ElementTest : public fake::LibraryTest {
 protected:
  // The cause's own line, if it writes one, stands within the milestone; the summary behind it.
  void ExpectCanNotImplement(const std::string& cause, bool causeIsLogged) {
    framework_.frameworkLog_.clear();
    const std::string text =
        "can not implement label4 with implementation=\"name\" and type=\"kind\"\n" + cause;
    EXPECT_EQ(fake::ErrorOf(Implement), text);
    Lines lines = {kMilestone, kEnd, {QEL_ERROR, text, kHeader}};
    if (causeIsLogged)
      lines.insert(lines.begin() + 1, {QEL_ERROR, cause, kHeader});
    EXPECT_EQ(framework_.frameworkLog_, lines);
  }
};

TEST_F(ElementTest, CreatesTheRegisteredElement) {
  const auto element = std::make_shared<fake::Source>();
  framework_.factory_ = std::make_shared<SourceFactory>([&](auto manifest) {
    EXPECT_TRUE(manifest);
    framework_.Note("Create");
    return element;
  });
  EXPECT_EQ(Implement(), SourceInstance(element, element, element));
  EXPECT_THAT(
      framework_.TakeCalls(),
      ElementsAre("CreateMilestone ImplementElement label4.name.kind", "GetFactory 4 name kind",
                  "GetManifest 4 name kind", "Create", "CreateWrapper"));
  EXPECT_THAT(framework_.frameworkLog_, ElementsAre(kMilestone, kEnd));
}

TEST_F(ElementTest, EveryRuntimeErrorBecomesOneFrameworkError) {
  ExpectCanNotImplement("[registryEntry] [ Pointer is null ]", true);
  framework_.factory_ = std::make_shared<ElementFactory<ElementFactoryType_VideoDecoder>>(nullptr);
  ExpectCanNotImplement("[factory] [ Pointer is null ]", true);
  framework_.factory_ = std::make_shared<SourceFactory>(
      [](auto) -> SourcePtr { throw std::runtime_error("no such device"); });
  ExpectCanNotImplement("no such device", false);
  framework_.missing_ = "GetManifest";
  ExpectCanNotImplement("[manifest] [ Pointer is null ]", true);
}

TEST_F(ElementTest, OtherExceptionsPass) {
  framework_.factory_ = std::make_shared<SourceFactory>(nullptr);
  EXPECT_THROW(Implement(), std::bad_function_call);
  EXPECT_THAT(framework_.frameworkLog_, ElementsAre(kMilestone, kEnd));
}

TEST_F(ElementTest, WithoutAWorkingWriterLinesGoToStandardError) {
  struct BrokenWriter : ILoggerWriter {
    void WriteLog(LogLevel, const char*, const char*, const char*, const char*, const char*,
                  const char*, const char*) override {
      throw 1;
    }
  };
  using Writers = std::vector<std::shared_ptr<ILoggerWriter>>;
  for (const auto& writer : Writers{nullptr, std::make_shared<BrokenWriter>()}) {
    framework_.writer_ = writer;
    testing::internal::CaptureStderr();
    EXPECT_EQ(fake::ErrorOf([] { QEL_CHECK_CONDITION(1 > 2, "size " << 3); }),
              "[size 3] [ Condition is not true ]");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "L2 [size 3] [ Condition is not true ]\n");
  }
}

}  // namespace qel
