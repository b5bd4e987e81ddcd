#include "UpdateServer.h"

#include <filesystem>

#include "UpdateBench.h"
#include "UpdateFiles.h"

namespace UpdateTest {

namespace {

constexpr char kInfoPath[] = "/bca_update_xml_vorn.xml";
constexpr char kQCPath[] = "/n62/control_material.xml";
constexpr char kQCFile[] = "/tmp/control_material_rm.xml";

class UpdateFromServer : public UpdateBench {
protected:
    UpdateFromServer() : app_(ImageData(200000, 1)), xml_(ZipArchive("new")) {
        server_.Answer(kInfoPath, CUpdateServer::Good(Info("/app")));
        server_.Answer("/app", CUpdateServer::Good(File("ZN6A", "2.00.00.0000", app_)));
        server_.Answer("/xml", CUpdateServer::Good(File("ZN6X", "2.00.00.0006", xml_)));
        server_.Answer("/sys", CUpdateServer::Good(package_.MakeFile()));
    }

    static std::string FileInfo(const std::string& name, int build, const std::string& path) {
        return "<file_info name=\"zel_" + name +
               ".n62.bin\" major_version=\"2\" minor_version=\"00\" release_patch=\"00\" build_number=\"" +
               std::to_string(build) + "\" file_path=\"" + path + "\"/>";
    }

    static std::string Info(const std::string& appPath) {
        return "<list><model name=\"N62\">" + FileInfo("app", 0, appPath) + FileInfo("xml", 6, "/xml") +
               FileInfo("sys", 2, "/sys") + "</model></list>";
    }

    /// The server's sockets that this process has open beside the server's own two.
    static long Sockets() {
        const std::filesystem::directory_iterator descriptors("/proc/self/fd");
        return std::distance(begin(descriptors), end(descriptors));
    }

    CUpdateServer server_;
    Package package_;
    std::string app_;
    std::string xml_;
};

// Faults: a request that a server does not understand, an image with its header or without its end, a package's parts
// left out of the writing, progress that stops short.
TEST_F(UpdateFromServer, WholeUpdate) {
    EXPECT_EQ(Run(0, 3), 0);
    const std::string end = "\r\nHost: 127.0.0.1\r\n\r\n";
    EXPECT_EQ(server_.TakeRequests(),
              (std::vector<std::string>{"GET /bca_update_xml_vorn.xml HTTP/1.1" + end, "GET /app HTTP/1.1" + end,
                                        "GET /xml HTTP/1.1" + end, "GET /sys HTTP/1.0" + end}));
    const auto reports = TakeReports();
    EXPECT_EQ(reports.back(), kComplete);
    EXPECT_EQ(reports[reports.size() - 2], std::string("\x04\x03\x03\x64\x06\x64\x07\x64"));
    EXPECT_TRUE(ReadFile("/data/device/images/3.img") == app_);
    EXPECT_TRUE(ReadFile("/data/device/images/2.img") == package_.rootfs);
    EXPECT_EQ(ReadFile("/data/xml_bank/2nd/settings.xml"), "new");
    EXPECT_EQ(History().size(), 7U);
    EXPECT_EQ(History()[7 - 1], "System|1.00.00.0000|2.00.00.0002|INTERNET");

    EXPECT_EQ(Run(0, 3), 0);
    EXPECT_EQ(TakeReports(), std::vector<std::string>{kNothing});
}

// Faults: an answer that is not in order taken for an update, a descriptor left open, a hang; after each the good
// server must do.
TEST_F(UpdateFromServer, BadAnswersThenGoodOnes) {
    const std::string info = Info("/app");
    const std::string sys = package_.MakeFile();
    struct Case {
        const char* path;
        std::string answer;
    };
    const Case cases[] = {
        {kInfoPath, ""},
        {kInfoPath, "HTTP/1.1 200 OK\r\n"},
        {kInfoPath, "HTTP/1.1 200 OK\r\n\r\n" + info},
        {kInfoPath, "HTTP/1.1 200 OK\r\nContent-Length: 2147483647\r\n\r\n" + info},
        {kInfoPath, "HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n" + info},
        {kInfoPath, "HTTP/1.1 302 Found\r\nLocation: /x\r\nContent-Length: 0\r\n\r\n"},
        {kInfoPath, CUpdateServer::Good(std::string(1, '\0') + info)},
        {kInfoPath, CUpdateServer::Good(Info("/a b"))},
        {"/app", ""},
        {"/app", CUpdateServer::Good("<html>")},
        {"/app", CUpdateServer::Good(File("ZN6A", "2.00.00.0001", app_))},
        {"/app", CUpdateServer::Good(File("ZN6A", "2.00.00.0000", app_).substr(0, 100000))},
        {"/app", CUpdateServer::Good(Header("ZN6A", -1, "2.00.00.0000"))},
        {"/sys", CUpdateServer::Good(sys.substr(0, sys.size() - 1))},
        {"/sys", CUpdateServer::Good(sys.substr(0, 40) + "ZN6S" + sys.substr(44))},
    };
    const long sockets = Sockets();
    for (const Case& test : cases) {
        const bool early = test.path == kInfoPath;
        server_.Answer(test.path, test.answer);
        EXPECT_EQ(Run(0, 3), 0);
        const auto outcomes = TakeOutcomes();
        EXPECT_EQ(outcomes.size(), early ? 1U : 2U) << test.answer.substr(0, 80);
        EXPECT_EQ(outcomes.back(), Failure(0x00204012, 0x0B)) << test.answer.substr(0, 80);
        EXPECT_LE(Sockets(), sockets + 1);
        server_.Answer(kInfoPath, CUpdateServer::Good(info));
        server_.Answer("/app", CUpdateServer::Good(File("ZN6A", "2.00.00.0000", app_)));
        server_.Answer("/sys", CUpdateServer::Good(sys));
    }
    ExpectUntouched();
    EXPECT_EQ(Run(0, 3), 0);
    EXPECT_EQ(TakeOutcomes().back(), kComplete);
}

// Faults: an error page or half a document left as QC material and reported as complete.
TEST_F(UpdateFromServer, QCMaterial) {
    server_.Answer(kQCPath, CUpdateServer::Good("<qc/>"));
    EXPECT_EQ(Run(0, 6), 0);
    EXPECT_EQ(TakeReports(), std::vector<std::string>{kComplete});
    EXPECT_EQ(ReadFile(kQCFile), "<qc/>");
    EXPECT_EQ(server_.TakeRequests(),
              std::vector<std::string>{"GET /n62/control_material.xml HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"});

    for (const char* answer : {"HTTP/1.1 404 Not Found\r\nContent-Length: 5\r\n\r\nerror",
                               "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf"}) {
        server_.Answer(kQCPath, answer);
        EXPECT_EQ(Run(0, 6), 0);
        EXPECT_EQ(TakeReports(), std::vector{Failure(0x00204012, 0x0B)});
        EXPECT_NE(ReadFile(kQCFile), "half");
        EXPECT_NE(ReadFile(kQCFile), "error");
    }
    WriteFile("/data/config/config_zelrm.cfg", "PCPeerID=7;\nUpdateURL=127.0.0.2;\n");
    WriteFile("/data/device/nv.cfg", "sn=S1\nproject=N62\nmodel_type=Veterinary\n");
    server_.Answer("/n62v_vorn/control_material.xml", CUpdateServer::Good(""));
    EXPECT_EQ(Run(0, 6), 0);
    EXPECT_EQ(TakeReports(), std::vector<std::string>{kComplete});
}

}  // namespace

}  // namespace UpdateTest
