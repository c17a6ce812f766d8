// SPDX-License-Identifier: Apache-2.0
// A message buffer whose calls return the opposite of what ours return, as an SDK may in which 0 is success.
// The daemon looks at no result, so it loses nothing.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstring>

#include "SessionControl.h"
#include "TCMessageBuffer.h"
#include "ZelDaemonStateManager.h"
#include "fakes/FakeDlog.h"
#include "fakes/FakeStateManager.h"
#include "native/SessionControlNative.h"
#include "support/Files.h"

namespace {

// How many reads went past the end of their buffer. The set's library need not survive one.
int readsPastTheEnd = 0;

bool opposite(bool hasRead) {
    readsPastTheEnd += hasRead ? 0 : 1;
    return !hasRead;
}

}  // namespace

// The compiler's names of WriteConcatenated, ReadInt, ReadLongLong and ReadConcatenated.
extern "C" bool __real__ZN15TCMessageBuffer17WriteConcatenatedEmPvi(TCMessageBuffer* buffer,
                                                                    unsigned long length, void* data,
                                                                    int offset);
extern "C" bool __wrap__ZN15TCMessageBuffer17WriteConcatenatedEmPvi(TCMessageBuffer* buffer,
                                                                    unsigned long length, void* data,
                                                                    int offset);
extern "C" bool __wrap__ZN15TCMessageBuffer17WriteConcatenatedEmPvi(TCMessageBuffer* buffer,
                                                                    unsigned long length, void* data,
                                                                    int offset) {
    return !__real__ZN15TCMessageBuffer17WriteConcatenatedEmPvi(buffer, length, data, offset);
}

extern "C" bool __real__ZN15TCMessageBuffer7ReadIntEPij(TCMessageBuffer* buffer, int* out,
                                                        unsigned int offset);
extern "C" bool __wrap__ZN15TCMessageBuffer7ReadIntEPij(TCMessageBuffer* buffer, int* out,
                                                        unsigned int offset);
extern "C" bool __wrap__ZN15TCMessageBuffer7ReadIntEPij(TCMessageBuffer* buffer, int* out,
                                                        unsigned int offset) {
    return opposite(__real__ZN15TCMessageBuffer7ReadIntEPij(buffer, out, offset));
}

extern "C" bool __real__ZN15TCMessageBuffer12ReadLongLongEPxj(TCMessageBuffer* buffer, long long* out,
                                                              unsigned int offset);
extern "C" bool __wrap__ZN15TCMessageBuffer12ReadLongLongEPxj(TCMessageBuffer* buffer, long long* out,
                                                              unsigned int offset);
extern "C" bool __wrap__ZN15TCMessageBuffer12ReadLongLongEPxj(TCMessageBuffer* buffer, long long* out,
                                                              unsigned int offset) {
    return opposite(__real__ZN15TCMessageBuffer12ReadLongLongEPxj(buffer, out, offset));
}

extern "C" bool __real__ZN15TCMessageBuffer16ReadConcatenatedEmPvj(TCMessageBuffer* buffer,
                                                                   unsigned long length, void* out,
                                                                   unsigned int offset);
extern "C" bool __wrap__ZN15TCMessageBuffer16ReadConcatenatedEmPvj(TCMessageBuffer* buffer,
                                                                   unsigned long length, void* out,
                                                                   unsigned int offset);
extern "C" bool __wrap__ZN15TCMessageBuffer16ReadConcatenatedEmPvj(TCMessageBuffer* buffer,
                                                                   unsigned long length, void* out,
                                                                   unsigned int offset) {
    return opposite(__real__ZN15TCMessageBuffer16ReadConcatenatedEmPvj(buffer, length, out, offset));
}

namespace {

constexpr int kInfo = 4;
constexpr const char* kState = "/tmp/zel_lite_sessions_state.txt";

class MessageBufferResultsTest : public testing::Test {
protected:
    MessageBufferResultsTest() {
        unlink(kState);
        fakes::FakeStateManager::reset();
        fakes::FakeDlog::clear();
    }

    TCZelDaemonStateManager m_manager;
};

}  // namespace

TEST_F(MessageBufferResultsTest, AllSessionsAreWrittenAndReadBack) {
    {
        TCSessionControl control(m_manager);
        control.Open(":1.7", "player", "42");
        control.Open(":1.8", "", "");
    }
    const std::string written = readFile(kState);

    TCSessionControl control(m_manager);

    EXPECT_EQ(fakes::FakeDlog::count(kInfo, "Load state, sessionId(:1.7), progName(player), pid(42)"), 1U);
    EXPECT_EQ(fakes::FakeDlog::count(kInfo, "Load state, sessionId(:1.8), progName(), pid()"), 1U);
    control.Open(":1.9", "", "");
    control.Close(":1.9");
    EXPECT_EQ(readFile(kState), written);
}

TEST_F(MessageBufferResultsTest, AStateFileThatEndsTooEarlyIsNotReadPastItsEnd) {
    {
        TCSessionControl control(m_manager);
        control.Open(":1.7", "player", "42");
        control.Open(":1.8", "", "");
    }
    const std::string written = readFile(kState);
    readsPastTheEnd = 0;

    for (std::size_t size = 0; size <= written.size(); ++size) {
        SCOPED_TRACE(size);
        writeFile(kState, written.substr(0, size));

        const TCSessionControl control(m_manager);

        EXPECT_EQ(readsPastTheEnd, 0);
    }
}

TEST_F(MessageBufferResultsTest, ATraceHasItsNumberItsTextAndItsLanguage) {
    TCSessionControl control(m_manager);
    SessionControlCallersObserver observer(control);
    SessionControlNative native(control, m_manager, observer);
    observer.SetCurrentCaller({"player", 42});
    TCMessageBuffer request;
    TCMessageBuffer reply;
    request.m_senderName = ":1.7";
    request.PushLongLong(9'000'000'000);
    request.PushInt(3);
    std::string text = "why";
    request.WriteConcatenated(text.size(), text.data(), -1);
    request.PushInt(2);

    native.OnCallReceived(3, request, reply);

    EXPECT_THAT(control.GetDebugInfo(), testing::HasSubstr("\"StackTrace\" : \"why\\u0000\""));
    EXPECT_THAT(control.GetDebugInfo(), testing::HasSubstr("\"Language\" : \"C#\""));
    native.OnCallReceived(4, request, reply);
    EXPECT_THAT(control.GetDebugInfo(), testing::HasSubstr("\"DestructionTime\""));
}
