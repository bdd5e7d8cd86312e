// SPDX-License-Identifier: Apache-2.0
//
// An authority, servers whose certificates it has signed, and what a client says to them.
#pragma once

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "net/certificates.hpp"
#include "net/client.hpp"
#include "net/server.hpp"
#include "net/stream.hpp"

namespace net_test {

using net::Loop;
using net::TlsContext;
using net::TlsSettings;

class Tls : public testing::Test {
  protected:
    Tls() : directory_(testing::TempDir() + "net_stream_XXXXXX") {
        EXPECT_NE(mkdtemp(directory_.data()), nullptr);
    }
    ~Tls() override {
        for (const std::string &name : files_) {
            remove(name.c_str());
        }
        remove(directory_.c_str());
    }

    std::string file(const std::string &name, const std::string &contents) {
        files_.push_back(directory_ + "/" + name);
        std::ofstream(files_.back()) << contents;
        return files_.back();
    }

    Identity server_identity(const std::string &alternative_names, long ends = 3600) {
        return make_identity({.common_name = "aaa.test",
                              .alternative_names = alternative_names,
                              .begins = -7200,
                              .ends = ends,
                              .issuer = &authority_});
    }

    // A context that trusts the authority.
    std::shared_ptr<const TlsContext> trusting(TlsSettings settings = {}) {
        settings.ca_file = file("ca.pem", authority_.certificate_pem());
        std::string error;
        auto context = TlsContext::make(settings, error);
        EXPECT_NE(context, nullptr) << error;
        return context;
    }

    // Why a client refuses a server, or an empty text.
    std::string refusal(const Identity &identity, const std::string &name,
                        const std::shared_ptr<const TlsContext> &context) {
        Server server(identity);
        std::thread other([&] {
            ServerSide side = server.accept();
            if (side.usable()) {
                side.write("x");
            }
        });
        Client client(loop_, server.address(), {context, name});
        client.run_until([&] { return client.closed || !client.received.empty(); });
        client.stream.reset();
        other.join();
        EXPECT_EQ(client.connected, !client.received.empty());
        return client.received.empty() ? client.reason : "";
    }

    Loop loop_;
    Identity authority_ =
        make_identity({.common_name = "Authority", .alternative_names = "", .is_authority = true});

  private:
    std::string directory_;
    std::vector<std::string> files_;
};

}  // namespace net_test
