#include "VantrelMulticastProtocol.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "CapturedLog.h"
#include "CoMsg.h"

using testing::ElementsAre;
using testing::IsEmpty;
using Vantrel::CapturedLog;
using Vantrel::CoMsg;
using Vantrel::rcAttrStream;

namespace {

using Protocol = VantrelMulticastProtocol;
using Infos = std::vector<VantrelDaemonInfo>;
using Texts = std::vector<std::string>;

constexpr const char* SOURCE = "vantrel/src/client/api/VantrelMulticastProtocol";

/// What `log` holds of the code under test.
Texts ownTexts(const CapturedLog& log) {
    Texts own;
    for (const CapturedLog::Entry& entry : log.entries())
        if (entry.source == SOURCE) own.push_back(entry.text);
    return own;
}

/// "storage id/database:port" of each record behind those that were there.
std::string decoded(const std::string& text, const char* database = nullptr) {
    Infos infos(1);
    Protocol::decode(text, infos, database);
    std::string found;
    for (std::size_t i = 1; i < infos.size(); ++i)
        found += Vantrel::coFormat("%s/%s:%d ", infos[i].getStorageId(), infos[i].getDatabase(),
                                   infos[i].getNodePort());
    return found;
}

TEST(DiscoveryDatagram, IsWrittenAsServersReadIt) {
    EXPECT_EQ(Protocol::create(Protocol::FIND_SERVERS, rcAttrStream("StorageId 4 st 1")),
              "Version 1 1Type 2 74Data 16 StorageId 4 st 1");
    EXPECT_EQ(Protocol::create(Protocol::REMOVE_SERVER, rcAttrStream()), "Version 1 1Type 2 73Data 0 ");
}

TEST(DiscoveryDatagram, IsReadOrRefusedWithAReason) {
    const std::string noVersion = "Request is lacking a version tag: ";
    // The type and the payload, or the error, which may end with the datagram itself.
    const std::pair<std::string, std::string> cases[] = {
        {"Version 1 1Type 2 71Data 16 StorageId 4 st 1", "71 StorageId 4 st 1"},
        {"Version 1 2Type 2 72Data 7 A 3 b c", "72 A 3 b c"},
        {"Version 2 -1Type 2 73Data 0 ", "73 "},
        {"Version 1 1Type 2 70Data 1 x", "70 x"},
        {"Version 1 1Type 2 75Data 1 x", "75 x"},
        {"Data 1 xType 2 74Later 2 onVersion 1 1", "74 x"},
        {"", noVersion},
        {"hello", noVersion},
        {"version 1 1Type 2 71Data 1 x", noVersion},
        {"Version 1 0Type 2 71Data 1 x", "Request's version is incompatible: 0."},
        {"Version 3 oneType 2 71Data 1 x", "Request's version is incompatible: 0."},
        {"Version 1 1Data 1 x", "Request is lacking a type tag: "},
        {"Version 1 1Type 2 69Data 1 x", "Unknown request type: 69."},
        {"Version 1 1Type 2 76Data 1 x", "Unknown request type: 76."},
        {"Version 1 1Type 1 0Data 1 x", "Unknown request type: 0."},
        {"Version 1 1Type 2 71", "Request is lacking data: "},
    };
    for (const auto& [text, expected] : cases) {
        CapturedLog log;
        const auto request = Protocol::parse(text);
        const std::string error = expected.back() == '.' ? expected : expected + text + ".";
        EXPECT_EQ(ownTexts(log), request ? Texts{} : Texts{error}) << text;
        const std::string read =
            request ? std::to_string(request->type) + " " + request->payload.text() : expected;
        EXPECT_EQ(read, expected);
        EXPECT_EQ(log.texts(CoMsg::ERROR), ownTexts(log));
    }
    EXPECT_FALSE(Protocol::parse("Version 1 1Type 2 72Data 9 cut"));
}

TEST(DiscoveryDatagram, TypesHaveNames) {
    std::string names = Protocol::getRequestTypeStr(Protocol::INVALID);
    for (int type = 70; type <= 76; ++type)
        names += std::string(" ") + Protocol::getRequestTypeStr(static_cast<Protocol::RequestType>(type));
    EXPECT_EQ(names,
              "INVALID START_OF_SERVICES DISCOVER_SERVERS DISCOVER_SERVERS_REPLY REMOVE_SERVER FIND_SERVERS "
              "END_OF_SERVICES UNKNOWN");
}

TEST(DaemonList, IsWrittenInOrderAndAppended) {
    std::string text = "before";
    Protocol::encode({}, text);
    EXPECT_EQ(text, "Count 1 0");
    Infos infos(2);
    infos[0].setStorageId("z");
    infos[1].setStorageId("a");
    Protocol::encode(infos, text);
    EXPECT_EQ(text.rfind("Count 1 2Node0 ", 0), 0u);
    EXPECT_EQ(decoded(text), "z/:7549 a/:7549 ");
}

TEST(DaemonList, IsRead) {
    const std::string a = "StorageId 1 aDatabase 1 A";
    const std::string node0 = "Node0 25 " + a;
    const std::string node1 = "Node1 40 StorageId 1 bDatabase 1 BNodePort 4 7600";
    const std::string node2 = "Node2 38 StorageId 1 cDatabase 1 ANodePort 2 -1";
    const std::string nothing = "Stream does not have any nodes.";
    const struct {
        std::string text;
        const char* database;
        const char* records;
        Texts messages;
    } cases[] = {
        {"Count 1 3" + node0 + node1 + node2, nullptr, "a/A:7549 b/B:7600 c/A:-1 ", {}},
        {"Count 1 2" + node0 + node1, "", "a/A:7549 b/B:7600 ", {}},
        {"Count 1 3" + node0 + node1 + node2, "A", "a/A:7549 c/A:-1 ", {}},
        {"Count 1 2" + node0 + node1, "a", "", {}},
        {"Count 1 2" + node0 + node1, "BB", "", {}},
        {"Count 1 1" + node0 + node1, nullptr, "a/A:7549 ", {}},
        {node1 + node0 + "Count 1 2", nullptr, "a/A:7549 b/B:7600 ", {}},
        {"Count 1 3" + node0 + node2, nullptr, "a/A:7549 c/A:-1 ", {"Stream is missing node 1 of 3."}},
        {"Count 1 4" + node0 + "Node3" + node2.substr(5),
         nullptr,
         "a/A:7549 c/A:-1 ",
         {"Stream is missing node 1 of 4.", "Stream is missing node 2 of 4."}},
        {"Count 1 2" + node1, nullptr, "b/B:7600 ", {"Stream is missing node 0 of 2."}},
        {"Count 1 2Node00 1 xNode+1 1 xnode1 1 xNode1x 1 xNode 1 x",
         nullptr,
         "",
         {"Stream is missing node 0 of 2.", "Stream is missing node 1 of 2."}},
        {"Count 1 1" + node0 + "Node0 13 StorageId 1 z", nullptr, "a/A:7549 ", {}},
        {"Count 1 1Node0 0 ", nullptr, "/:7549 ", {}},
        {"Count 1 1Node0 99 " + a, nullptr, "a/A:7549 ", {}},
        {"Count 10 2147483647" + node0, nullptr, "a/A:7549 ", {"Stream is missing node 1 of 2147483647."}},
        {"Count 2 -3" + node0, nullptr, "", {}},
        {"Count 1 2" + node0 + "Node1 x", nullptr, "a/A:7549 ", {"Stream is missing node 1 of 2."}},
        {"Count 1 0", nullptr, "", {nothing}},
        {"", nullptr, "", {nothing}},
        {"Node0 0 ", nullptr, "", {nothing}},
        {"Count 4 none", nullptr, "", {nothing}},
    };
    for (const auto& c : cases) {
        CapturedLog log;
        EXPECT_EQ(decoded(c.text, c.database), c.records) << c.text;
        EXPECT_EQ(ownTexts(log), c.messages) << c.text;
    }
}

TEST(DaemonList, HoldsNoMoreThanItsMaximum) {
    const unsigned most = Protocol::MAX_LIST_NODES;
    for (unsigned count : {most, most + 1}) {
        std::string text = "Count 5 " + std::to_string(count);
        for (unsigned i = 0; i < count; ++i) text += "Node" + std::to_string(i) + " 0 ";
        CapturedLog log;
        Infos infos;
        Protocol::decode(text, infos, nullptr);
        EXPECT_EQ(infos.size(), std::min(count, most));
        EXPECT_EQ(log.texts(CoMsg::WARNING).size(), count > most ? 1u : 0u);
        EXPECT_THAT(log.texts(CoMsg::ERROR), IsEmpty());
    }
}

}  // namespace
