"""Holds the preference manifests and the profile against the commented managed.json, against each other and
against what their forms require."""

import json
import pathlib
import plistlib
import re
import sys
import uuid

packaging = pathlib.Path(sys.argv[1])
domain = "com.veltrion.tarnlink"
types = {"boolean": bool, "string": str, "real": float, "integer": int}


def load(name):
    return plistlib.loads((packaging / "macOS" / name).read_bytes())


def without_texts(manifest):
    texts = {"pfm_title", "pfm_description", "pfm_range_list_titles", "pfm_value_unit"}
    bare = {key: value for key, value in manifest.items() if key not in texts}
    bare["pfm_subkeys"] = [{k: v for k, v in entry.items() if k not in texts} for entry in manifest["pfm_subkeys"]]
    return bare


def takes(entry, value):
    return (
        type(value) is types[entry["pfm_type"]]
        and value in entry.get("pfm_range_list", [value])
        and entry.get("pfm_range_min", value) <= value <= entry.get("pfm_range_max", value)
        and re.search(entry.get("pfm_format", ""), str(value)) is not None
    )


example = re.findall(r'^    // "(\w+)": (.*),$', (packaging / "managed.json.example").read_text("utf-8"), re.M)
values = {key: json.loads(value) for key, value in example}
assert len(values) == 16, values

english, german = load(domain + ".plist"), load("de/" + domain + ".plist")
assert without_texts(english) == without_texts(german)
assert english["pfm_domain"] == domain and english["pfm_format_version"] == 1
for ours, theirs in zip(english["pfm_subkeys"], german["pfm_subkeys"]):
    for key in ("pfm_title", "pfm_description"):
        assert ours[key] and theirs[key] and ours[key] != theirs[key], ours["pfm_name"]

payload = [entry for entry in english["pfm_subkeys"] if entry["pfm_name"].startswith("Payload")]
assert {entry["pfm_name"]: entry["pfm_require"] for entry in payload} == dict.fromkeys(
    ["PayloadDisplayName", "PayloadIdentifier", "PayloadType", "PayloadUUID", "PayloadVersion"], "always"
)
manifest = {entry["pfm_name"]: entry for entry in english["pfm_subkeys"] if entry not in payload}
# Whoever sets every default must not set a name that wins over another one's value.
older = manifest.pop("SplitDNSFix")
assert "pfm_app_deprecated" in older and "pfm_default" not in older, older
assert list(manifest) == list(values)
for name, entry in manifest.items():
    assert entry.get("pfm_default", values[name]) == values[name], name
    assert takes(entry, values[name]), name
    assert len(entry.get("pfm_range_list", [])) == len(entry.get("pfm_range_list_titles", [])), name
limited = {k: (e["pfm_range_min"], e["pfm_range_max"]) for k, e in manifest.items() if "pfm_range_min" in e}
assert limited == {"MaxPauseMinutes": (1, 1440)}, limited
assert [k for k, e in manifest.items() if "pfm_default" not in e] == ["UpdateFeedURL"]

profile = load("Tarnlink.mobileconfig")
(settings,) = profile["PayloadContent"]
assert (profile["PayloadType"], profile["PayloadScope"]) == ("Configuration", "System")
assert settings["PayloadType"] == "com.apple.ManagedClient.preferences"
for one in (profile, settings):
    assert one["PayloadVersion"] == 1
    assert one["PayloadUUID"] == str(uuid.uuid5(uuid.NAMESPACE_DNS, one["PayloadIdentifier"])).upper()
assert {"default", "de"} == set(profile["ConsentText"])
(forced,) = settings["PayloadContent"][domain]["Forced"]
assert forced["mcx_preference_settings"]
for name, value in forced["mcx_preference_settings"].items():
    assert takes(manifest[name], value), name
