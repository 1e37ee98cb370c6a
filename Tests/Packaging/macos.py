"""What a Mac installs, as far as another system can tell: python3 macos.py ROOT BUILD-FOLDER"""

import hashlib, json, os, pathlib, re, shutil, subprocess, sys, tempfile, unittest

ROOT, BUILT = map(pathlib.Path, sys.argv[1:3])
PACKAGING = ROOT / "Packaging/macOS"
VERSION, BUILD = (ROOT / "VERSION").read_text().split()[:2]
PACKAGE = f"tarnlink-{VERSION}-{BUILD}.pkg"
PROGRAMS = ["TarnlinkMenu", "TarnlinkDaemon", "TarnlinkUpdater", "tarnlinkctl"]
PRESETS = {entry["name"]: entry for entry in json.loads((ROOT / "CMakePresets.json").read_text())["configurePresets"]}
IDENTITIES = {"TARNLINK_APPLICATION_IDENTITY": "App ID", "TARNLINK_INSTALLER_IDENTITY": "Pkg ID",
              "TARNLINK_NOTARY_PROFILE": "notary", "TARNLINK_DOWNLOAD_HOST": "dl.example",
              "TARNLINK_SUPPORT_HOST": "help.example"}


def constant(name):
    return re.search(rf'\b{name} = "(.*)";', (ROOT / "TarnXPC/TarnXPC.h").read_text()).group(1).replace('\\"', '"')


class Temporary(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)
        self.calls, self.fakes, self.out = (self.folder / name for name in ("calls", "fakes", "out"))
        self.fakes.mkdir()

    def fake(self, name, body="", status=0, folder=None):
        """A program that writes down how it was called."""
        file = (folder or self.fakes) / name
        file.write_text(f'#!/bin/bash\n{{ printf "%s" {name}; printf " [%s]" "$@"; echo; }} >>{self.calls}\n'
                        f'{body}\nexit {status}\n')
        file.chmod(0o755)

    def called(self):
        lines = self.calls.read_text().splitlines() if self.calls.exists() else []
        self.calls.unlink(missing_ok=True)
        return [line.replace(str(self.folder), "~") for line in lines]

    def release(self, *words, status=0, **environment):
        environment = {**os.environ, **dict.fromkeys(IDENTITIES, ""), **environment,
                       "PATH": f"{self.fakes}:{os.environ['PATH']}"}
        run = subprocess.run([ROOT / "scripts/release/macos", *map(str, words)], env=environment,
                             capture_output=True, text=True)
        self.assertEqual(run.returncode, status, run.stderr)
        return run

    def layout(self):
        programs = self.folder / "bin"
        programs.mkdir()
        for name in PROGRAMS:
            self.fake(name, folder=programs)
        (self.folder / "drawn.icns").touch()
        self.release("layout", self.out, programs, self.folder / "drawn.icns")
        return self.out / "Tarnlink.app"


class Bundle(Temporary):
    def check(self, *words):
        run = subprocess.run([ROOT / "scripts/release/check-bundle", *words, self.out], capture_output=True, text=True)
        return run.stderr

    def test_bundle_is_what_the_system_and_the_code_rely_on(self):
        self.release("layout", self.out)
        self.assertEqual(self.check(), "")
        self.assertEqual(self.check("--complete").count("is missing"), 5)
        contents = self.layout() / "Contents"
        self.assertEqual(self.check("--complete"), "")
        daemon = contents / "Library/LaunchDaemons/com.veltrion.tarnlink.daemon.plist"
        german = contents / "Resources/de.lproj/InfoPlist.strings"
        # Each is found, and nothing else with it.
        for file, old, new, fault in (
                (contents / "Info.plist", "tarnlink.menu", "tarnlink", "CFBundleIdentifier"),
                (contents / "Info.plist", f">{VERSION}<", ">9.9.9<", "CFBundleShortVersionString"),
                (contents / "Info.plist", f">{BUILD}<", ">9<", "CFBundleVersion"),
                (contents / "Info.plist", ">13.0<", ">12.0<", "LSMinimumSystemVersion"),
                (contents / "Info.plist", "<true/>", "<string>1</string>", "LSUIElement"),
                (daemon, "MacOS/TarnlinkDaemon", "MacOS/Daemon", "property list"),
                (daemon, "<key>com.veltrion", "<key>com.other", "property list"),
                (german, '"NSLocationUsageDescription"', '"NSLocation"', "in German"),
                (self.out / "Distribution.xml", f'"{VERSION}.', '"', "what is installed")):
            text = file.read_text()
            self.assertIn(old, text)
            file.write_text(text.replace(old, new, 1))
            self.assertRegex(self.check("--complete"), f"^check-bundle: [^\n]*{fault}[^\n]*\n$")
            file.write_text(text)
        (contents / "Resources/uninstall").chmod(0o644)
        self.assertIn("that it can be run", self.check())

    @unittest.skipUnless(shutil.which("clang++-19"), "needs a compiler for several systems")
    def test_universal_build_is_configured(self):
        known = dict(re.findall(r"^(\w+):\w+=(.*)$", (BUILT / "CMakeCache.txt").read_text(), re.M))
        values = {name: known[name] for name in ("nlohmann_json_DIR", "OPENSSL_CRYPTO_LIBRARY", "OPENSSL_INCLUDE_DIR")}
        for language in ("CXX", "OBJCXX"):
            values |= {f"CMAKE_{language}_COMPILER": shutil.which("clang++-19"), f"CMAKE_{language}_COMPILER_WORKS": 1}
        values |= {"CMAKE_SYSTEM_NAME": "Darwin", "CMAKE_OSX_SYSROOT": "/", "CMAKE_INSTALL_NAME_TOOL": "true",
                   "CMAKE_TRY_COMPILE_TARGET_TYPE": "STATIC_LIBRARY", "TARNLINK_TESTS": "OFF"}
        preset = PRESETS["macos-universal"]
        self.assertEqual((preset["inherits"], preset["condition"]["rhs"]), ("release", "Darwin"))
        words = [f"-D{name}={value}" for name, value in {**preset["cacheVariables"], **values}.items()]
        run = subprocess.run(["cmake", "-S", ROOT, "-B", self.out, "-G", "Ninja", *words], capture_output=True, text=True)
        self.assertEqual(run.returncode, 0, run.stderr)
        rules = (self.out / "build.ninja").read_text()
        compiled = re.findall(r"^build \S+\.(?:cpp|mm)\.o:.*\n(?:  .*\n)*", rules, re.M)
        self.assertGreater(len(compiled), 100)
        self.assertFalse([rule for rule in compiled if "-arch arm64 -arch x86_64 -mmacosx-version-min=13.0" not in rule])
        self.assertIn("AppKitView.mm.o", rules)


class Release(Temporary):
    def setUp(self):
        super().setUp()
        for name in ("lipo", "pkgutil", "spctl", "rsvg-convert"):
            self.fake(name)
        self.fake("codesign", 'last=${@: -1}\n[ "$1" != --force ] || [ ! -d "$last" ] || { mkdir -p '
                  '"$last/Contents/_CodeSignature"; : >"$last/Contents/_CodeSignature/CodeResources"; }')
        self.fake("otool", 'printf "%s:\\n\\t/usr/lib/libc++.1.dylib (x)\\n\\t/System/Library/F (x)\\n" "$2"')
        self.fake("pkgbuild", f'find "$2" ! -path "$2/*/*" -printf "%P %m\\n" >{self.folder}/payload')
        self.fake("productbuild", 'printf package >"${@: -1}"')
        self.fake("iconutil", ': >"$4"')
        self.answer("Accepted")

    def answer(self, status):
        self.fake("xcrun", f'[ "$2" != submit ] || echo "{{\\"id\\": \\"7\\", \\"status\\": \\"{status}\\"}}"')

    def test_without_an_identity_nothing_is_done(self):
        self.layout()
        needed = dict(zip(("sign", "package", "notarise"), IDENTITIES)) | {"cask": "TARNLINK_DOWNLOAD_HOST"}
        for step, name in [*needed.items(), *(("release", name) for name in IDENTITIES)]:
            run = self.release(step, self.out, status=2, **{**IDENTITIES, name: ""})
            self.assertIn(f"{name} is not set", run.stderr)
        self.assertEqual(self.called(), [])
        for words in ([], ["sing", "x"], ["sign"], ["layout", "a", "b", "c", "d"]):
            self.release(*words, status=2, **IDENTITIES)

    def test_signs_from_the_inside_out(self):
        app = self.layout()
        self.release("sign", self.out, **IDENTITIES)
        calls = self.called()
        signed = [line for line in calls if line.startswith("codesign [--force]")]
        self.assertEqual([line.rsplit("Tarnlink.app", 1)[1] for line in signed], [
            "/Contents/MacOS/TarnlinkDaemon]", "/Contents/MacOS/TarnlinkUpdater]", "/Contents/MacOS/tarnlinkctl]", "]"])
        for line in signed:
            self.assertIn("[--sign] [App ID] [--timestamp] [--options] [runtime] [--identifier]", line)
        self.assertEqual(["--entitlements" in line for line in signed], [False, False, False, True])
        # Each fulfils what its peer requires of it.
        for place, name in ((0, "daemonRequirement"), (2, "clientRequirement"), (3, "clientRequirement")):
            requirement = constant(name)
            self.assertIn(f"[--identifier] [{requirement.split(chr(34))[1]}]", signed[place])
            self.assertIn(f"[--verify] [--strict] [-R={requirement}]", calls[calls.index(signed[place]) + 1])
        self.assertEqual(calls[-1], "codesign [--verify] [--deep] [--strict] [~/out/Tarnlink.app]")
        for name, body, status in (("lipo", "", 1), ("otool", "", 1), ("otool", 'printf "%s:\\n\\t/opt/lib/libcrypto.3.dylib\\n" "$2"', 0)):
            self.fake(name, body, status)
            self.release("sign", self.out, status=1, **IDENTITIES)
            self.assertNotIn("codesign", " ".join(self.called()))
            self.fake(name)
        (app / "Contents/MacOS/tarnlinkctl").unlink()
        self.assertIn("tarnlinkctl is missing", self.release("sign", self.out, status=1, **IDENTITIES).stderr)

    def test_packages_only_what_is_signed_and_believes_only_an_accepted_notarisation(self):
        self.layout()
        self.assertIn("not signed", self.release("package", self.out, status=1, **IDENTITIES).stderr)
        self.release("sign", self.out, **IDENTITIES)
        self.called()
        self.assertEqual(self.release("package", self.out, **IDENTITIES).stdout, f"{self.out / PACKAGE}\n")
        build, product, check = self.called()
        self.assertIn(f"[--identifier] [com.veltrion.tarnlink] [--version] [{VERSION}.{BUILD}] [--scripts]", build)
        self.assertRegex(product, r"^productbuild \[--distribution\] \[~/out/Distribution.xml\] .*\[--sign\] "
                         rf"\[Pkg ID\] \[--timestamp\] \[~/out/{PACKAGE}\]$")
        self.assertIn("[--install-location] [/Applications]", build)
        # The installer may give a folder that is there the mode that it has here.
        self.assertEqual((self.folder / "payload").read_text(), " 775\nTarnlink.app 755\n")
        for status in ("Invalid", ""):
            self.answer(status)  # The tool itself exits with 0.
            self.assertIn("not notarised", self.release("notarise", self.out / PACKAGE, status=1, **IDENTITIES).stderr)
            self.assertNotIn("staple", " ".join(self.called()))

    def test_whole_release_and_its_cask(self):
        shutil.move(self.layout().parent.parent / "bin", self.folder / "built")
        self.called()
        self.fake("cmake", 'case $1 in --preset | --build) exit ;; esac\nwords=()\nfor word in "$@"; do words+=('
                  f'"${{word/#PROGRAMS=*/PROGRAMS={self.folder}/built}}"); done\nexec {shutil.which("cmake")} "${{words[@]}}"')
        self.release("release", self.out, **IDENTITIES)
        steps = list(dict.fromkeys(" ".join(line.split()[:1 + line.startswith("xcrun")]) for line in self.called()))
        self.assertEqual(steps, ["cmake", "rsvg-convert", "iconutil", "lipo", "otool", "codesign", "pkgbuild",
                                 "productbuild", "pkgutil", "xcrun [notarytool]", "xcrun [stapler]", "spctl"])
        cask = (self.out / "tarnlink.rb").read_text()
        for words in (f'version "{VERSION},{BUILD}"', f'sha256 "{hashlib.sha256(b"package").hexdigest()}"',
                      'url "https://dl.example/dl/tarnlink-#{version.csv.first}-#{version.csv.second}.pkg"',
                      'launchctl: "com.veltrion.tarnlink.daemon"', 'quit:      "com.veltrion.tarnlink.menu"',
                      'pkgutil:   "com.veltrion.tarnlink"', "zap trash: [", "auto_updates true", "strategy :json"):
            self.assertIn(words, cask)
        self.assertNotIn("@", cask)
        self.assertEqual(len(re.findall(r"\bdo(?: \|\w+\|)?$", cask, re.M)), len(re.findall(r"^\s*end$", cask, re.M)))
        for opening, closing in ("[]", "{}", "()"):
            self.assertEqual(cask.count(opening), cask.count(closing))


class Scripts(Temporary):
    """The scripts that run as root on the Mac, with a root and tools of the test."""

    def setUp(self):
        super().setUp()
        self.root = self.folder / "root"
        self.programs = self.root / "Applications/Tarnlink.app/Contents/MacOS"
        self.support = self.root / "Library/Application Support"
        for folder in (self.programs, self.support, self.root / "usr/local/bin"):
            folder.mkdir(parents=True)
        for name in ("TarnlinkDaemon", "TarnlinkMenu"):
            self.fake(name, folder=self.programs)
        for name in ("pkill", "open", "security", "pkgutil", "chown", "chmod", "sleep"):
            self.fake(name)
        self.fake("pgrep", status=1)
        self.fake("sudo", 'shift 2\nexec "$@"')
        self.fake("launchctl", f'case $1 in asuser) shift 2; exec "$@" ;; bootout) : >{self.folder}/ended ;; '
                  f'print) [ ! -e {self.folder}/ended ] || exit 1 ;; esac')
        self.fake("stat", "case $2 in %u) echo ${OWNER:-0} ;; *) echo ${SOMEBODY-alice} ;; esac")
        self.fake("id", '[ "$*" = -u ] && echo ${WHO:-0} || echo 501')

    def run_script(self, path, *words, status=0, **environment):
        text = (PACKAGING / path).read_text()
        for line, ours in (("PATH=/usr/bin:/bin:/usr/sbin:/sbin\n", f"PATH={self.fakes}:/usr/bin:/bin\n"),
                           ("root=\n", f"root={self.root}\n")):
            self.assertEqual(text.count(line), 1)
            text = text.replace(line, ours)
        (self.folder / "script").write_text(text)
        run = subprocess.run(["sh", self.folder / "script", *words], capture_output=True, text=True,
                             env={**os.environ, **environment})
        self.assertEqual(run.returncode, status, run.stderr)
        silent = ("stat", "id", "sudo", "sleep", "pgrep")
        return [re.sub(r" \[(~.*|system/.*)\]", "", line) for line in self.called() if line.split()[0] not in silent]

    def test_uninstaller_undoes_first_and_removes_nothing_otherwise(self):
        link, memory = self.root / "usr/local/bin/tarnlinkctl", self.support / "Tarnlink"
        link.symlink_to("/Applications/Tarnlink.app/Contents/MacOS/tarnlinkctl")
        roots = self.root / "var/root/Library/Preferences/com.veltrion.tarnlink.plist"
        memory.mkdir()
        roots.parent.mkdir(parents=True)
        roots.touch()
        self.assertEqual(self.run_script("uninstall", "--all", status=2), [])
        self.assertEqual(self.run_script("uninstall", WHO="501", status=2), [])
        self.fake("TarnlinkDaemon", status=1, folder=self.programs)
        stop = ["launchctl [print]", "launchctl [bootout]", "launchctl [print]", "TarnlinkDaemon [--undo]"]
        self.assertEqual(self.run_script("uninstall", status=1), stop)
        self.assertTrue(self.programs.exists() and link.is_symlink())
        self.assertEqual(self.run_script("uninstall", "--force"), ["launchctl [print]", "TarnlinkDaemon [--undo]",
            "launchctl [asuser] [501] [sudo] [-u] [alice]", "TarnlinkMenu [--unregister]", "pkill [-x] [TarnlinkMenu]",
            "pkgutil [--pkg-info] [com.veltrion.tarnlink]", "pkgutil [--forget] [com.veltrion.tarnlink]"])
        self.assertFalse(self.programs.exists() or link.is_symlink())
        self.assertTrue(memory.exists() and roots.exists())
        self.assertNotIn("asuser", " ".join(self.run_script("uninstall", "--purge", SOMEBODY="")))
        self.assertFalse(memory.exists() or roots.exists())

    def test_installation_hands_over_to_the_new_programs(self):
        words = ("scripts/postinstall", "package", "/")
        kill = ["launchctl [kill] [SIGTERM]"]
        self.assertEqual(self.run_script(*words, "/"), kill + [
            "launchctl [asuser] [501] [sudo] [-u] [alice]", "TarnlinkMenu [--register]",
            "pkill [-x] [-U] [501] [TarnlinkMenu]", "launchctl [asuser] [501] [sudo] [-u] [alice] [open] [-g]", "open [-g]"])
        command = self.root / "usr/local/bin/tarnlinkctl"
        self.assertEqual(command.readlink(), self.programs / "tarnlinkctl")
        for user in ("root", "loginwindow", "_mbsetupuser", ""):
            self.assertEqual(self.run_script(*words, "/", SOMEBODY=user), kill)
        self.assertEqual(self.run_script(*words, "/Volumes/Other"), [])

    def test_folders_of_root_are_nobody_elses(self):
        (self.support / "Tarnlink").symlink_to(self.folder)
        self.run_script("scripts/preinstall")
        (self.support / "Tarnlink Updater/kept").touch()
        for owner, is_kept, moved in (("0", True, 1), ("501", False, 3)):
            self.run_script("scripts/preinstall", OWNER=owner)
            self.assertEqual((self.support / "Tarnlink Updater/kept").exists(), is_kept)
            self.assertEqual(len(list(self.support.glob("*.foreign.*"))), moved)
        self.assertFalse((self.support / "Tarnlink").is_symlink())


class Adapters(unittest.TestCase):
    """An adapter of the Mac translates. It has no table: no constant array or container, and no more than one
    branch of a switch that answers with a literal. And it has no text for people: no literal in which a blank
    stands between two letters, but for paths and what goes into the log."""

    TABLES = [r"\b(?:static|constexpr|const)\b[^;(){}]*(?:\[\w*\]|\b(?:array|vector|map|set|initializer_list)\s*<"
              r"[^;{}]*>|\bNS(?:Array|Dictionary|Set)\b[^;{}]*)\s*\w*\s*=\s*@?[\[{]",
              r"(?:case[^:;{}]+:\s*return\s+@?\"[^;]*;\s*){2}"]
    TEXT = r'"(?!/)(?:[^"\\\n]|\\.)*[A-Za-z] [A-Za-z](?:[^"\\\n]|\\.)*"'

    def found(self, code):
        code = re.sub(r"//[^\n]*", "", code)
        # Whole statements, because a log line may be a long one.
        statements = [part for part in re.split(r"[;{}]\s*\n", code) if "log_.write(" not in part]
        return [match.group() for pattern in self.TABLES for match in re.finditer(pattern, code)] + [
            match.group() for part in statements for match in re.finditer(self.TEXT, part)]

    def test_there_is_neither_table_nor_text(self):
        for code in ("constexpr std::array<Band, 2> bands = {{a, b}};", 'static const char *const names[] = {"a"};',
                     'static NSDictionary *const words = @{@"a" : @"b"};', 'throw Error("no such thing");',
                     'case 1:\n return "a";\n case 2:\n return "b";', 'field.stringValue = @"Not now";'):
            self.assertTrue(self.found(code), code)
        files = [file for file in (ROOT / "Platform/macOS").iterdir()]
        self.assertGreater(len(files), 60)
        for file in files:
            self.assertEqual(self.found(file.read_text()), [], file.name)
        lines = [line for line in (ROOT / "docs/macos.md").read_text().splitlines() if line.startswith("| `")]
        told = {name for line in lines for name in re.findall(r"`(\w+)[.\w]*`", line.split("|")[1])}
        self.assertEqual(told, {file.name.split(".")[0] for file in files}, "each file, and what was seen of it")


class Command(Temporary):
    def test_what_starts_by_itself_is_told_and_ended(self):
        name = "autostart/com.veltrion.tarnlink.menu.desktop"
        (self.folder / "autostart").mkdir()
        (self.folder / name).write_text("[Desktop Entry]\nType=Application\nName=Tarnlink\nExec=TarnlinkMenu\n")
        environment = {**os.environ, "XDG_CONFIG_DIRS": str(self.folder), "XDG_CONFIG_HOME": f"{self.folder}/own",
                       "DBUS_SYSTEM_BUS_ADDRESS": "unix:path=/none"}
        for words, status, state in ((["--registration"], 0, "started"), (["--unregister"], 0, "not started"),
                                     (["--register"], 1, "not started"), (["--register", "--text"], 2, None)):
            run = subprocess.run([BUILT / "bin/TarnlinkMenu", *words], env=environment, capture_output=True, text=True)
            self.assertEqual(run.returncode, status, run.stderr)
            self.assertEqual(run.stdout, state and f"daemon: the system does not tell\napplication at login: {state} "
                             "by the system\n" or "")
        self.assertIn("Hidden=true", (self.folder / "own" / name).read_text())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
