// Keeps an application's settings: prints them, after changing those that the arguments name (KEY=VALUE).
#include "appcfg/connection.h"

#include <iostream>

int main(int argc, char** argv) {
    try {
        appcfg::Connection connection;
        connection.KeepItems(
            [](const std::string& reason) { std::cerr << "connected again: " << reason << '\n'; });

        appcfg::ItemDescription description{appcfg::Handle("radio", "settings")};
        description.path = "${default_setting_path}radio.json";
        description.backupPath = "${default_backup_path}radio.json";
        description.defaultPath = "${default_setting_path}radio.default.json";
        appcfg::Item settings = connection.Create(description);

        for (int at = 1; at < argc; ++at) {
            const std::string argument = argv[at];
            const size_t equals = argument.find('=');
            settings.Set(argument.substr(0, equals),
                         equals == std::string::npos ? "" : argument.substr(equals + 1));
        }
        std::cout << "station " << settings.Get("station.name") << '\n';
        std::cout << "volume " << settings.GetInt("volume") << '\n';
        std::cout << "muted " << (settings.GetBool("muted") ? "yes" : "no") << '\n';
        return 0;
    } catch (const appcfg::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
