#pragma once

// Lets several test classes share one binary: each file registers its class
// with MAPWRIGHT_TEST_CLASS and TestRegistryMain runs them all in turn.

#include <QObject>

#include <functional>
#include <memory>
#include <vector>

namespace TestRegistry
{
using TFactory = std::function<std::unique_ptr<QObject>()>;

std::vector<std::pair<const char*, TFactory>>& Classes();

struct TRegistration
{
  TRegistration(const char* AName, TFactory AFactory) { Classes().emplace_back(AName, std::move(AFactory)); }
};
}

#define MAPWRIGHT_TEST_CLASS(ClassName)                                                                   \
  static const TestRegistry::TRegistration ClassName##Registration(#ClassName,                          \
    [] { return std::unique_ptr<QObject>(std::make_unique<ClassName>()); });
