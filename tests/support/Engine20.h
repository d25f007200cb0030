#pragma once
// The 2.0.1 engine between a recording host and a recording link, with its
// device model opened fresh in a folder of its own.
#include <gtest/gtest.h>

#include <string>

#include "RecordingHost.h"
#include "RecordingLink.h"
#include "TestSupport.h"

namespace ocpptest {

class Engine20 : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // Lets everything already queued for the host reach it.
    void Drain();

    TempDir dir;
    RecordingHost host;
    RecordingLink link;
    LogCapture log;
};

inline std::string Call(const std::string& id, const std::string& action, const std::string& payload) {
    return "[2,\"" + id + "\",\"" + action + "\"," + payload + "]";
}

// The CSMS sets one OCPPCommCtrlr variable.
inline std::string SetCall(const std::string& id, const std::string& variable, const std::string& value) {
    return Call(id, "SetVariables", R"({"setVariableData":[{"component":{"name":"OCPPCommCtrlr"},"variable":{"name":")" +
                                        variable + R"("},"attributeValue":")" + value + "\"}]}");
}

}  // namespace ocpptest
