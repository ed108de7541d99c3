"""What regsvr32 leaves in the registry, in the filter mapper and for COM."""

import struct

from formats import must_succeed, require

# What hosts and installers know; written down a second time here so that a slip in the module shows.
CLASSES = {
    "{6BA9DD10-09B9-4C8B-89A8-8AC445601214}": "Orvane AVI Source Filter",
    "{8B359726-D939-41A8-8CBD-69A27675D978}": "Orvane OGG Source Filter",
    "{0D84C574-0C1D-466C-9D7B-49FD7BBF6E87}": "Orvane MPEG Source Filter",
    "{9794BD42-281E-45EE-94CC-70A260E407B5}": "Orvane MKV Source Filter",
    "{D18284FE-DE51-4F33-A9BB-A8D3AE4B66BB}": "Orvane MP4 Source Filter",
    "{07D8B782-BC02-485B-8B45-0C6073127B2B}": "Orvane ASF Source Filter",
    "{4CDD9B3E-1D8E-48DE-8B5B-80AFADCB8CA1}": "Orvane FLV Source Filter",
    "{5A9841E4-3164-48AB-B54F-633A792FB047}": "Orvane AsfEx Source Filter",
    "{4A9A79B3-6EAA-46AE-B024-5918C04C169E}": "Orvane OGG Source Filter2",
    "{C846F6AA-63EE-42CB-AB73-229BE6A795AA}": "Orvane MP3 Source Filter",
    "{C1EA8A02-9E67-4967-AEDC-845B8AA13EC0}": "Orvane AAC Source Filter",
    "{4D40E319-013F-4F5C-900D-25EA9C1FF16D}": "Orvane MPEG Source Filter2",
}
SOFTWARE_CLASSES = r"HKEY_LOCAL_MACHINE\Software\Classes\CLSID" "\\"
MAPPER_INSTANCES = SOFTWARE_CLASSES + r"{083863F1-70DE-11D0-BD40-00A0C911CE86}\Instance" "\\"
# What Wine writes into the registry whenever it gets round to it.
NOT_OURS = ("HKEY_CURRENT_USER\\Software\\Wine", "\\Microsoft\\Windows NT\\CurrentVersion\\NetworkCards")
CLASS_NOT_REGISTERED = "error 0x80040154"
MERIT_DO_NOT_USE, OUTPUT_PIN = 0x200000, 8


def snapshot(wine):
    """The software registry but for what is Wine's own business: {key: {value: text}}."""
    keys = {}
    for root in ("HKLM", "HKCU"):
        must_succeed(wine.run_command("reg", "export", root + r"\Software", "C:\\vex\\software.reg", "/y"),
                     "reg export")
        text = (wine.drive / "software.reg").read_text(encoding="utf-16")
        for line in text.replace("\\\n  ", "").splitlines()[1:]:
            if line.startswith("["):
                values = keys[line[1:-1]] = {}
            elif line:
                name, _, value = line.partition("=")
                values[name] = value
    return {key: values for key, values in keys.items() if not any(theirs in key for theirs in NOT_OURS)}


def same_registry(now, expected, what):
    different = [f"{key}: {now.get(key)} instead of {expected.get(key)}"
                 for key in sorted(now.keys() | expected.keys()) if now.get(key) != expected.get(key)]
    require(not different, "\n  ".join((what, *(line[:300] for line in different[:8]))))


def seen_by_programs(context):
    """({class identifier: (name, offered or hidden)} in the mapper, {class identifier: what creating it gives})."""
    said = must_succeed(context.client("registration_test.exe", *CLASSES), "registration_test").stdout.decode("utf-8")
    lines = [line.split("\t") for line in said.splitlines()]
    mapped = [line for line in lines if len(line) == 3 and line[0] in CLASSES]
    require(len(mapped) == len({line[0] for line in mapped}), f"registered more than once in the mapper: {mapped}")
    return {clsid: tuple(rest) for clsid, *rest in mapped}, dict(line for line in lines if len(line) == 2)


def check_added(before, installed, path):
    """The keys that came are those of the twelve filters, with nothing wrong in them."""
    require(all(installed.get(key) == values for key, values in before.items()), "registering changed what was there")
    added = installed.keys() - before.keys()
    expected = set()
    for clsid, name in CLASSES.items():
        own, entry = SOFTWARE_CLASSES + clsid, MAPPER_INSTANCES + clsid
        server = own + r"\InprocServer32"
        expected |= {own, server, entry}
        require(expected <= added, f"{name} lacks {sorted(expected - added)}")
        require(installed[own] == {"@": f'"{name}"'}, f"{name}: {installed[own]}")
        require({key: value.lower() for key, value in installed[server].items()} ==
                {"@": f'"{path}"'.replace("\\", "\\\\").lower(), '"ThreadingModel"': '"both"'},
                f"{name}: {installed[server]}")
        # {version, merit, pins, reserved}, then of each pin {"0pi3" signature, flags, instances, media types, ...}.
        data = bytes.fromhex(installed[entry]['"FilterData"'].removeprefix("hex:").replace(",", ""))
        _, merit, pins, _, _, flags, _, types = struct.unpack_from("<8I", data)
        require((merit, pins, flags, types) == (MERIT_DO_NOT_USE, 1, OUTPUT_PIN, 0),
                f"{name} is registered with merit {merit:#x}, {pins} pins, flags {flags} and {types} media types")
    require(added == expected, f"registering also made {sorted(added - expected)[:5]}")
    return len(added)


def check(context):
    """regsvr32, twice, /u, twice, and again; leaves the module registered."""
    def regsvr32(*options):
        must_succeed(context.wine.run_command("regsvr32", "/s", *options, r"C:\vex\VEX.ax"),
                     " ".join(("regsvr32", *options)))

    # The first look into the mapper makes the system write a cache for it.
    nothing = ({}, dict.fromkeys(CLASSES, CLASS_NOT_REGISTERED))
    require(seen_by_programs(context) == nothing, "a filter is registered before regsvr32")
    before = snapshot(context.wine)
    regsvr32()
    installed = snapshot(context.wine)
    count = check_added(before, installed, r"C:\vex\VEX.ax")
    built = {clsid.upper() for clsid in context.built.values()}
    mapped, created = seen_by_programs(context)
    require(mapped == {clsid: (name, "hidden") for clsid, name in CLASSES.items()}, f"the mapper says {mapped}")
    require(created == {clsid: "S_OK" if clsid in built else "E_NOTIMPL" for clsid in CLASSES}, f"COM says {created}")

    regsvr32()
    same_registry(snapshot(context.wine), installed, "registering twice is not the same as registering once")
    regsvr32("/u")
    same_registry(snapshot(context.wine), before, "unregistering leaves a difference")
    require(seen_by_programs(context) == nothing, "a filter is registered after regsvr32 /u")
    regsvr32("/u")
    same_registry(snapshot(context.wine), before, "unregistering twice is not the same as unregistering once")
    regsvr32()
    same_registry(snapshot(context.wine), installed, "registering after unregistering differs from the first time")
    return f"{count} keys come and go; {len(built)} classes load a filter"
