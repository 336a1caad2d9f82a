// The schema and the program read a file alike, and --check asks both.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/schema.h"
#include "settings.h"
#include "support/child.h"
#include "support/temp_folder.h"

using namespace ominspect::gateway;

namespace {

class GatewaySchema : public testing::Test {
protected:
    // "taken", "refused", or what else the two say.
    static std::string Verdict(const std::string& xml) {
        support::WriteFile("gateway.xml", xml);
        const bool isTaken = static_cast<bool>(LoadSettings("gateway.xml"));
        const auto errors = ominspect::SchemaErrors(SCHEMA, "gateway.xml");
        if (!errors) {
            return errors.Failure().text;
        }
        if (isTaken != errors->empty()) {
            return isTaken ? "only the schema refuses: " + errors->front() : "only the program refuses";
        }
        return isTaken ? "taken" : "refused";
    }

    const support::WorkingFolder work_;
};

TEST_F(GatewaySchema, TakesWhatTheProgramTakes) {
    for (const char* xml :
         {"<Gateway/>", "<Gateway process='ic-room' refresh='3600'/>", "<Gateway><DBus/></Gateway>",
          "<Gateway><DBus enabled='false'/><History enabled='true' path='/h' days='1' megabytes='65536'/></Gateway>",
          "<Gateway><Metrics enabled='false'/></Gateway>", "<Gateway><Mqtt/></Gateway>",
          "<Gateway><Mqtt enabled='true' terminal='t' host='h' port='1' login='/l' authority='/a' certificate='/c' "
          "key='/k' "
          "position='/p' rate='10000'><Role name='r' collect='true'><Run item='clock'/><Run item='d*'/></Role><Role "
          "name='q'/></Mqtt></Gateway>",
          "<Gateway><Mqtt enabled='true' socket='/s'/></Gateway>",
          "<Gateway><Http/><Collection enabled='false' folder='/f' config='/c'/></Gateway>",
          "<Gateway><!-- two --><Http tokens='/t' certificate='/c' key='/k'><Tcp address='::1' port='0'/><Host "
          "name='a'/>"
          "<Unix path='/s'/><Tcp address='10.0.0.1'/></Http></Gateway>",
          "<Gateway><Http><Tcp address='::ffff:10.0.0.1' port='65535'/></Http></Gateway>",
          "<Gateway><Http><Tcp address='255.249.199.0'/></Http></Gateway>"}) {
        EXPECT_EQ(Verdict(xml), "taken") << xml;
    }
}

TEST_F(GatewaySchema, RefusesWhatTheProgramRefuses) {
    for (const char* xml : {"<Gate/>",
                            "<Gateway size='1'/>",
                            "<Gateway process='room'/>",
                            "<Gateway process='ic-456789abcdefg'/>",
                            "<Gateway refresh='0'/>",
                            "<Gateway refresh='3601'/>",
                            "<Gateway refresh='+5'/>",
                            "<Gateway refresh=''/>",
                            "<Gateway><Tea/></Gateway>",
                            "<Gateway>text</Gateway>",
                            "<Gateway><DBus/><DBus/></Gateway>",
                            "<Gateway><DBus enabled='yes'/></Gateway>",
                            "<Gateway><DBus enabled='true'>x</DBus></Gateway>",
                            "<Gateway><DBus name='x'/></Gateway>",
                            "<Gateway><Metrics path='x'/></Gateway>",
                            "<Gateway><Mqtt port='0'/></Gateway>",
                            "<Gateway><Mqtt rate='0'/></Gateway>",
                            "<Gateway><Mqtt rate='10001'/></Gateway>",
                            "<Gateway><Mqtt socket='s'/></Gateway>",
                            "<Gateway><Mqtt><Item/></Mqtt></Gateway>",
                            "<Gateway><Mqtt><Role/></Mqtt></Gateway>",
                            "<Gateway><Mqtt><Role name='r'><Run/></Role></Mqtt></Gateway>",
                            "<Gateway><History path='h'/></Gateway>",
                            "<Gateway><History path=''/></Gateway>",
                            "<Gateway><History days='0'/></Gateway>",
                            "<Gateway><History days='3651'/></Gateway>",
                            "<Gateway><History megabytes='65537'/></Gateway>",
                            "<Gateway><Http><Unix/></Http></Gateway>",
                            "<Gateway><Http><Tcp port='1'/></Http></Gateway>",
                            "<Gateway><Http><Tcp address='localhost'/></Http></Gateway>",
                            "<Gateway><Http><Tcp address='::1' port='65536'/></Http></Gateway>",
                            "<Gateway><Http><Tcp address='10.0.0.256'/></Http></Gateway>",
                            "<Gateway><Http><Tcp address='010.0.0.1'/></Http></Gateway>",
                            "<Gateway><Http><Tcp address='10.0.1'/></Http></Gateway>",
                            "<Gateway><Http><Host name=''/></Http></Gateway>",
                            "<Gateway><Http><Door/></Http></Gateway>",
                            "<Gateway><Http><Unix path='/a'><b/></Unix></Http></Gateway>",
                            "<Gateway><Collection folder='here'/></Gateway>",
                            "<Gateway><Collection path='/c'/></Gateway>"}) {
        EXPECT_EQ(Verdict(xml), "refused") << xml;
    }
    EXPECT_EQ(Verdict("<Gateway><Http><Unix path='/" + std::string(107, 'x') + "'/></Http></Gateway>"), "refused");
    EXPECT_EQ(Verdict("<Gateway><Http><Unix path='/" + std::string(106, 'x') + "'/></Http></Gateway>"), "taken");
}

TEST_F(GatewaySchema, CheckAsksTheProgramAndThenTheSchema) {
    const auto check = [](const std::string& file, const std::vector<std::string>& environment = {}) {
        const auto outcome = support::Run({GATEWAY_PROGRAM, "--config", file, "--check"}, environment);
        return std::to_string(outcome.exitCode) + " " + outcome.output;
    };
    EXPECT_EQ(check(SHIPPED), "0 ");
    support::WriteFile("wrong.xml", "<Gateway>\n<DBus enabled='maybe'/></Gateway>");
    EXPECT_EQ(check("wrong.xml").find("2 ominspect-gateway: wrong.xml: line 2: "), 0U) << check("wrong.xml");
    // A mistake that the program's own reader passes over.
    support::WriteFile("entity.xml", "<Gateway>\n<History path='/a&b;'/></Gateway>");
    EXPECT_EQ(check("entity.xml").find("2 ominspect-gateway: entity.xml: line 2: "), 0U) << check("entity.xml");
    EXPECT_EQ(check(SHIPPED, {"PATH=/nowhere"}),
              "0 ominspect-gateway: not checked against the schema: xmllint: No such file or directory\n");
}

}  // namespace
