// recorderctl web: where the web server listens, and with which certificate.
#include <CLI/CLI.hpp>
#include <memory>

#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/web_certificate.h"
#include "tools/recorderctl/web_listen.h"
#include "tools/recorderctl/web_setting.h"
#include "tools/recorderctl/web_upkeep.h"

namespace recorderctl {

namespace {

std::vector<std::string> urls_of(const WebSetting& setting) {
    const std::string scheme = setting.maker == CertificateMaker::none ? "http://" : "https://";
    std::vector<std::string> urls;
    for (const std::string& host : reachable_hosts(setting.address))
        urls.push_back(scheme + WebAddress{host, setting.address.port}.text() + '/');
    return urls;
}

std::string maker_text(CertificateMaker maker) {
    return maker == CertificateMaker::own ? "own" : "given";
}

std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts) all += (all.empty() ? "" : " ") + text;
    return all;
}

void print_setting(const WebSetting& setting) {
    for (const std::string& url : urls_of(setting)) print_row({"address", url});
    if (setting.maker != CertificateMaker::none) {
        const CertificateFacts facts = read_certificate(setting.pem);
        print_row({"certificate", maker_text(setting.maker)});
        print_row({"fingerprint", "SHA-256 " + facts.fingerprint});
        print_row({"names", joined(facts.names)});
        print_row({"ends", zoned_time(facts.ends)});
    }
    print_row({"answers", is_served(setting) ? "yes" : "no"});
}

void print_setting_json(const WebSetting& setting) {
    JsonLine line;
    line.add("listen", setting.address.text()).add("urls", urls_of(setting));
    if (setting.maker != CertificateMaker::none) {
        const CertificateFacts facts = read_certificate(setting.pem);
        line.add("certificate", maker_text(setting.maker)).add("fingerprint", facts.fingerprint);
        line.add("names", facts.names).add("ends", facts.ends);
    }
    line.add("answers", is_served(setting)).print();
}

void show(bool json) {
    const std::optional<WebSetting> kept = kept_web_setting();
    if (kept && json)
        print_setting_json(*kept);
    else if (kept)
        print_setting(*kept);
    else if (json)
        JsonLine().add("urls", std::vector<std::string>()).print();
    else
        print_row({"address", "127.0.0.1 alone"});
}

void add_listen_command(CLI::App& group) {
    const auto order = std::make_shared<ListenOrder>();
    CLI::App* listening = group.add_subcommand(
        "listen", "Listen on an address and port, too: by TLS, but for loopback addresses");
    listening
        ->add_option("ADDRESS:PORT", order->address,
                     "One of this machine's, or 0.0.0.0 or [::] for all")
        ->required();
    CLI::Option* certificate =
        listening->add_option("--certificate", order->certificate,
                              "Serve this certificate (PEM), and those behind it that vouch for "
                              "it, instead of one of the recorder's own making");
    CLI::Option* key = listening->add_option("--key", order->key, "The certificate's key (PEM)");
    certificate->type_name("FILE")->needs(key);
    key->type_name("FILE")->needs(certificate);
    listening->add_flag("--later", order->later,
                        "Leave it to the web server's next start to take it up");
    listening->callback([order] { print_setting(listen(*order)); });
}

}  // namespace

void add_web_commands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("web", "Where the web server listens");
    group->require_subcommand(1);
    add_listen_command(*group);

    const auto later = std::make_shared<bool>(false);
    CLI::App* local = group->add_subcommand("local", "Listen on 127.0.0.1 alone again");
    local->add_flag("--later", *later, "Leave it to the web server's next start to take it up");
    local->callback([later] {
        listen_locally(*later);
        show(false);
    });

    const auto json = std::make_shared<bool>(false);
    CLI::App* show_it = group->add_subcommand(
        "show", "Show the addresses, the certificate, and whether the web server answers there");
    show_it->add_flag("--json", *json, "One JSON object");
    show_it->callback([json] { show(*json); });

    group
        ->add_subcommand(
            "renew",
            "Replace a certificate of the recorder's own that ends within 30 days or is "
            "not valid yet")
        ->callback([] { renew_if_due(); });

    const auto port = std::make_shared<int>(0);
    const auto held = std::make_shared<std::string>();
    CLI::App* prepare_it = group->add_subcommand(
        "prepare", "What the web server's start asks: renew, and tell where to listen");
    prepare_it->add_option("PORT", *port, "The port of 127.0.0.1 that is served by plain HTTP")
        ->required();
    prepare_it->add_option("HELD", *held,
                           "ADDRESS:PORT where the web server listens now: that is not taken");
    prepare_it->callback([port, held] { prepare(*port, *held); });
}

}  // namespace recorderctl
