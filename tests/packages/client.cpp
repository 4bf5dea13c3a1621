#include <iostream>

#include <appcfg/connection.h>

int main() {
    appcfg::Connection connection;
    appcfg::ItemDescription item{appcfg::Handle("package", "test")};
    item.path = "/usr/setting/program.json";
    item.backupPath = "/usr/setting_bak/program.json";
    item.defaultPath = "/usr/setting/program.default.json";
    appcfg::Item settings = connection.Create(item);
    settings.Set("network.name", settings.Get("network.name") + "+");
    std::cout << settings.Get("network.name") << "\n";
}
