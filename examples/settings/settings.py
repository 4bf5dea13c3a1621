"""Keeps an application's settings: prints them, after changing those that the arguments name (KEY=VALUE)."""
import sys

import appcfg

with appcfg.Connection() as connection:
    connection.keep_items(lambda reason: print("connected again:", reason, file=sys.stderr))
    with connection.create("radio", "settings", path="${default_setting_path}radio.json",
                           backup="${default_backup_path}radio.json",
                           default="${default_setting_path}radio.default.json") as settings:
        for argument in sys.argv[1:]:
            key, _, value = argument.partition("=")
            settings[key] = value
        print("station", settings["station.name"])
        print("volume", settings.get("volume", 10))
        print("muted", "yes" if settings.get("muted", False) else "no")
