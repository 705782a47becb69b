#pragma once

// The framework side of code that builds and uses elements: the log statement, the checks that
// turn a broken expectation into a framework error, and the creation of elements by name.
// Nothing here keeps state or takes a lock; any thread may use it.

#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "qel/ElementFactory.h"
#include "qel/Logging.h"
#include "qel/Milestone.h"
#include "qel/QELRuntimeError.h"
#include "qel/SourceLocation.h"
#include "qel/Text.h"

namespace qel {

// Hands a line to the writer in force, or to standard error when there is none or it throws.
inline void WriteLogStatement(LogLevel level, const std::string& message,
                              SourceLocation at = SourceLocation::Current()) {
  const auto writeToStandardError = [&] {
    std::cerr << ToString(level) << ' ' << message << '\n' << std::flush;
  };
  try {
    if (const auto writer = GetCurrentLoggerWriter()) {
      writer->WriteLog(level, message.c_str(), GetCurrentContextString().c_str(), at.file,
                       ToString(at.line).c_str(), "", GetThreadId().c_str(),
                       GetCurrentTimeString().c_str());
    } else {
      writeToStandardError();
    }
  } catch (...) {
    writeToStandardError();
  }
}

// Logs the message as an error and throws QELRuntimeError with it.
[[noreturn]] inline void RaiseError(const std::string& message,
                                    SourceLocation at = SourceLocation::Current()) {
  WriteLogStatement(QEL_ERROR, message, at);
  throw QELRuntimeError(message);
}

// Raise an error with the name, or the text, unless the pointer is set, or the condition holds.
template <typename Pointer>
void CheckPointer(const Pointer& pointer, const char* name,
                  SourceLocation at = SourceLocation::Current()) {
  if (!pointer)
    RaiseError(QEL_TEXT("[" << name << "] [ Pointer is null ]"), at);
}

inline void CheckCondition(bool holds, const char* text,
                           SourceLocation at = SourceLocation::Current()) {
  if (!holds)
    RaiseError(QEL_TEXT("[" << text << "] [ Condition is not true ]"), at);
}

}  // namespace qel

// These take what may be streamed ("no track " << id), and so have to be macros.

// Writes a framework log line. The text is made whatever the level: the writer decides.
#define QEL_LOG(level, streamed) ::qel::WriteLogStatement(level, QEL_TEXT(streamed))

// Logs the text as an error and throws QELRuntimeError with it.
#define QEL_RAISE(streamed) ::qel::RaiseError(QEL_TEXT(streamed))

// As CheckCondition; the text is made only when the condition does not hold.
#define QEL_CHECK_CONDITION(condition, streamed) \
  ((condition) ? void() : QEL_RAISE("[" << streamed << "] [ Condition is not true ]"))

namespace qel {

// Creates the element registered under (T, implementationName, type) and returns its sides.
//
// Any std::runtime_error on the way becomes one QELRuntimeError, "can not implement ...", which
// ends with the text of its cause; other exceptions pass through.
template <ElementFactoryType T>
typename ElementFactoryType_traits<T>::InstanceType ImplementElement(
    const std::string& implementationName, const std::string& type,
    std::shared_ptr<const IStep> step) {
  try {
    const std::string name = GetLabel(T) + "." + implementationName + "." + type;
    QEL_LOG(QEL_TRACE, "[MILESTONE]["
                           << "ImplementElement " << name << "]");
    const MilestonePtr thisMilestone = CreateMilestone("ImplementElement " + name);
    const std::shared_ptr<IElementFactory> registryEntry = GetFactory(T, implementationName, type);
    CheckPointer(registryEntry, "registryEntry");
    const std::shared_ptr<const IParametersCollectionInstance> manifest =
        GetManifest(T, implementationName, type);
    CheckPointer(manifest, "manifest");
    const auto factory = std::dynamic_pointer_cast<ElementFactory<T>>(registryEntry);
    CheckPointer(factory, "factory");
    return ElementFactoryType_traits<T>::Build(factory->Create(manifest), step);
  } catch (const std::runtime_error& error) {
    QEL_RAISE("can not implement " << GetLabel(T) << " with implementation=\"" << implementationName
                                   << "\" and type=\"" << type << "\"\n"
                                   << error.what());
  }
}

}  // namespace qel
