"""Runs the program as people do, on files of every kind.

    motool_test.py PROGRAM SCRATCH_DIR [PREFIX]

PREFIX is where it is installed, with its man page and its completion.
"""

import gzip
import json
import os
import pathlib
import pty
import select
import shutil
import signal
import subprocess
import sys
import time
import unittest
import xml.etree.ElementTree

PROGRAM = SCRATCH = PREFIX = None
EMULATED = os.environ.get("MOTOOLKIT_TEST_EMULATOR", "") != ""
WINDOWS = os.environ.get("MOTOOLKIT_TEST_SYSTEM") == "Windows"
# What the program prints is in the code page there, which comes with the language.
LOCALE, CHARSET = ("zh_CN.UTF-8", "gbk") if WINDOWS else ("C.UTF-8", "utf-8")
CHINESE = "城市地图"
ITEM = "2026-11-21 {:02}:{:02}:00| {:6}| {:6}| 4711| {:>7}| {}| {}({})\n"


def item(hour, minute, level, message, code=0, source="viewer.cpp", line=7):
    return ITEM.format(hour, minute, 1, code, level, message, source, line)


def make_locale(name):
    language, charset = name.split(".")
    made = subprocess.run(["localedef", "-i", language, "-f", charset, pathlib.Path(SCRATCH) / name], capture_output=True)
    assert (pathlib.Path(SCRATCH) / name).exists(), made.stderr


class MotoolTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        pathlib.Path(SCRATCH).mkdir(parents=True, exist_ok=True)
        if WINDOWS:
            make_locale(LOCALE)
            # The first program starts what Wine has in the background, which then stays, and keeps none of our pipes.
            cls.first = subprocess.Popen([PROGRAM, "lock", f"first {os.getpid()}", "--run", "cmd", "/c", "set /p told="],
                                         stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            while subprocess.run([PROGRAM, "lock", f"first {os.getpid()}"], stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL).returncode != 0:
                time.sleep(0.1)

    @classmethod
    def tearDownClass(cls):
        if WINDOWS:
            cls.first.communicate()

    def setUp(self):
        self.folder = pathlib.Path(SCRATCH) / self.id().split(".")[-1]
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)

    def file(self, name, content):
        path = self.folder / name
        path.parent.mkdir(exist_ok=True)
        path.write_bytes(content if isinstance(content, bytes) else content.encode())
        return str(path)

    def environment(self, locale=LOCALE):
        # The C library keeps for ever what it makes of LOCPATH, which a sanitizer calls a leak.
        path = {} if locale.startswith("C") else {"LOCPATH": SCRATCH, "LSAN_OPTIONS": "detect_leaks=0"}
        return {**os.environ, "LC_ALL": locale, "TZ": "UTC0", "TERM": "xterm", **path}

    def start(self, *arguments, locale=LOCALE, **options):
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "env": self.environment(locale), **options}
        return subprocess.Popen([PROGRAM, *arguments], cwd=self.folder, **options)

    def run_motool(self, *arguments, status=0, warns=False, **options):
        """The bytes on standard output and the text on standard error of a run with that exit status. Nothing stands on
        the latter when all is well, unless there is something to warn of."""
        process = self.start(*arguments, **options)
        out, error = process.communicate(timeout=60)
        self.assertEqual(process.returncode, status, (arguments, out, error))
        self.assertNotIn(b"\x1b", (out or b"") + error)
        if warns is not None:
            self.assertEqual(error == b"", status == 0 and not warns, error)
        return out, error.decode(CHARSET, errors="replace")

    def text(self, *arguments, **options):
        return self.run_motool(*arguments, **options)[0].decode(CHARSET)

    def error(self, *arguments, status=1, **options):
        return self.run_motool(*arguments, status=status, **options)[1]

    def rows(self, *arguments):
        return [line.split() for line in self.text(*arguments).splitlines()]

    def on_terminal(self, *arguments):
        master, slave = pty.openpty()
        process = self.start(*arguments, stdout=slave, stderr=slave)
        os.close(slave)
        shown = b""
        while True:
            try:
                part = os.read(master, 65536)
            except OSError:  # the terminal is gone with its last user
                part = b""
            if not part:
                break
            shown += part
        os.close(master)
        return process.wait(), shown

    # ---- Usage

    def test_usage(self):
        self.assertIn("Subcommands", self.text("--help"))
        self.assertRegex(self.text("--version"), r"^motool \d+\.\d+\.\d+\n$")
        for command in ("xml", "config", "log", "style", "text", "lock"):
            self.assertIn(f"\n  motool {command} ", self.text(command, "--help"), command)
            self.error(command, "--nonsense", status=2)
        log = self.file("a.log", item(1, 0, "info", "x"))
        for wrong in ([], ["nonsense"], ["xml"], ["log"], ["text"], ["lock"], ["style"], ["log", log, "--level", "loud"],
                      ["log", log, "--since", "31-11-2026"], ["log", log, "--since", "2026-02-30"],
                      ["log", log, "--count", "0"], ["log", log, "--code", "1..x"], ["log", log, "--time-format", "%s%Y"],
                      ["log", log, "--follow", "--summary"], ["text", log, "--to", "UTF-8"],
                      ["text", log, "--from", "UTF-8", "--to", "UTF-99"], ["xml", log, "--encode", "nonsense"],
                      ["xml", log, "-o", "out"], ["lock", "x", "--read"], ["lock", "x", "--run"],
                      ["lock", "x", "--timeout", "-1", "--run", "true"], ["style", log, "--to", "gif"]):
            self.error(*wrong, status=2)

    def test_what_cannot_be_read(self):
        for command in (["xml"], ["config"], ["log"], ["style"], ["text", "--from", "UTF-8", "--to", "UTF-8"]):
            for path in ("missing", str(self.folder), "", "/proc/self/mem"):
                self.assertRegex(self.error(command[0], path, *command[1:]), "^motool: ")

    def test_output_that_is_lost(self):
        log = self.file("a.log", item(1, 0, "info", "x"))
        with open("/dev/full", "wb") as full:
            self.assertIn("could be written", self.error("log", log, stdout=full))

    def test_hostile_files(self):
        record = (50).to_bytes(4, "little") + b"\xff" * 46
        files = [b"", b"\0" * 100000, os.urandom(100000), b"<" * 100000, b"<a>" * 200000, b"\xff\xfe", b"\xff\xfe\0\0a",
                 b"<a " + b"b='1' " * 50000 + b"/>", b"<a>" * 100000 + b"</a>" * 100000, record * 1000,
                 b"\xff\xff\xff\xff" * 10, b"\n" * 100000, b"2026-11-21 " * 10000, gzip.compress(b"x" * 1000),
                 b"<?xml version='1.0' encoding='UTF-16'?><a/>", b"<?xml version='1.0' encoding='nonsense'?><a>\xff</a>",
                 b"<r><a type='subreg'>" * 50000, b"<r>" + b"<a type='subreg'>" * 50000 + b"</a>" * 50000 + b"</r>",
                 (item(1, 0, "info", "\x1b[31m\r\x07" + "x" * 200000)).encode(), b"<zpl:Style>" + b"<zpl:LineStyle/>" * 10000,
                 b"<zpl:Style><zpl:CustomMarkerSymbol><zpl:MarkerSymbolLength>2147483647</zpl:MarkerSymbolLength>"
                 b"</zpl:CustomMarkerSymbol></zpl:Style>"]
        commands = (["xml"], ["xml", "--get", "a/a/@b"], ["xml", "--indent", "-o", "x.out"], ["config"], ["config", "--json"],
                    ["config", "--check"], ["log"], ["log", "--json"], ["log", "--summary"], ["style"],
                    ["style", "--to", "svg"], ["style", "--to", "xml"], ["style", "--kind", "region"],
                    ["style", "--kind", "all", "--to", "svg"], ["text", "--guess"],
                    ["text", "--from", "GB18030", "--to", "UTF-16"])
        for number, content in enumerate(files):
            path = self.file("hostile", content)
            for command in commands[number % 8::8] if WINDOWS else commands:  # a program's start takes long there
                process = self.start(command[0], path, *command[1:])
                out, error = process.communicate(timeout=60)
                self.assertIn(process.returncode, (0, 1, 2), (number, command, error))
                self.assertLess(len(error), 10000)
                self.assertEqual(pathlib.Path(path).read_bytes(), content, "it was only to be read")

    # ---- xml

    def test_xml_in_every_charset(self):
        body = f'<map><layer name="{CHINESE}">&lt;{CHINESE}</layer><layer name="b"><x/></layer></map>'
        for encoding, python in (("UTF-8", "utf-8"), ("GB2312", "gbk"), ("Big5", "big5"), ("UTF-16", "utf-16"),
                                 ("GB18030", "gb18030"), ("Shift_JIS", "cp932")):
            name = CHINESE if encoding not in ("Big5", "Shift_JIS") else "地"
            path = self.file("a.xml", f'<?xml version="1.0" encoding="{encoding}"?>\n{body}'.replace(CHINESE, name).encode(python))
            for locale in (LOCALE,) if WINDOWS else ("C.UTF-8", "C"):
                out = self.text("xml", path, "--get", "map/layer[1]", "--get", "/map/layer/@name", locale=locale)
                self.assertEqual(out, f"<{name}\n{name}\nb\n")
            rows = dict(line.split(None, 1) for line in self.text("xml", path).splitlines() if not line.startswith(("top", "well")))
            self.assertEqual([rows["elements"], rows["attributes"], rows["depth"]], ["4", "2", "3"])
            self.run_motool("xml", path, "--encode", "UTF-8", "--set", "map/layer[2]/@name", "ä & <")
            tree = xml.etree.ElementTree.parse(path).getroot()
            self.assertEqual([layer.get("name") for layer in tree], [name, "ä & <"])

    def test_terminal_that_is_not_utf8(self):
        make_locale("zh_CN.GBK")
        environment = self.environment("zh_CN.GBK")
        run = lambda *arguments, **options: self.run_motool(*arguments, env=environment, **options)
        name = os.fsencode(self.folder) + "/地图.xml".encode("gbk")
        for content in (CHINESE, CHINESE + "é\N{GRINNING FACE}"):  # the latter is more than GBK has
            with open(name, "w", encoding="utf-8") as file:
                file.write(f'<?xml version="1.0" encoding="UTF-8"?>\n<m n="{content}"/>')
            self.assertEqual(run("xml", name, "--get", "m/@n")[0].decode("gbk"), content.replace("é\N{GRINNING FACE}", "é?") + "\n")
            run("xml", name, "--set", "m/新".encode("gbk") + b"/@n", b"x", status=1)
            run("xml", name, "--set", b"m/@n2", "街".encode("gbk"))
            top = xml.etree.ElementTree.parse(os.fsdecode(name)).getroot()
            self.assertEqual(top.attrib, {"n": content, "n2": "街"})
        missing = self.start("xml", "图.xml".encode("gbk"), env=environment).communicate()[1]
        self.assertEqual(missing.decode("gbk"), "motool: 图.xml: No such file or directory\n")
        self.assertEqual(json.loads(run("log", self.file("a.log", item(1, 0, "info", CHINESE).encode("gbk")), "--json")[0])["message"], CHINESE)

    def test_xml_edits(self):
        path = self.file("a.xml", "<m><a i='1'>x</a><a>y</a><b><c/></b></m>")
        self.run_motool("xml", path, "--set", "m/a[2]", "-5", "--set", "m/b/new", "n", "--set", "m/*/@k", "v",
                        "--remove", "m/a[1]", "--remove", "m/b/c", "-o", "b.xml")
        self.assertEqual((self.folder / "a.xml").read_text(), "<m><a i='1'>x</a><a>y</a><b><c/></b></m>")
        text = (self.folder / "b.xml").read_bytes().decode(CHARSET)  # which the parser does not know by itself
        tree = xml.etree.ElementTree.fromstring(text[text.index("<m"):])
        self.assertEqual([(e.tag, e.attrib, (e.text or "").strip()) for e in tree.iter()],
                         [("m", {}, ""), ("a", {"k": "v"}, "-5"), ("b", {"k": "v"}, ""), ("new", {}, "n")])
        self.run_motool("xml", path, "--remove", "m/a/@i", "--indent")
        self.assertIn("\n\t<a>x</a>", (self.folder / "a.xml").read_text().replace("\r", ""))

    def test_xml_failures_change_nothing(self):
        text = "<m><a>x</a><b><c/></b></m>"
        for arguments in (["--set", "m/b", "t"], ["--set", "m/q[3]", "t"], ["--set", "m/a/@1", "t"], ["--remove", "m"],
                          ["--remove", "m/q"], ["--set", "m/a", CHINESE, "--encode", "ISO-8859-1"], ["--get", "m/q"],
                          ["--set", "m/a", "t", "-o", "missing/out.xml"], ["--remove", "m/a/@k"]):
            path = self.file("a.xml", text)
            self.error("xml", path, *arguments)
            self.assertEqual((self.folder / "a.xml").read_text(), text, arguments)
        for path in ("m//a", "m/a[0]", "m/a[x]", "m/", "", "@a", "m/@"):
            self.error("xml", self.file("a.xml", text), "--get", path, status=2)
        broken = self.file("a.xml", f'<?xml version="1.0" encoding="GB2312"?>\n<m>\n {CHINESE}</n>\n</m>'.encode("gbk"))
        message = self.error("xml", broken)
        self.assertIn(f"a.xml:3:{2 + len(CHINESE.encode(CHARSET))}: End tag", message)
        self.assertIn(f"     {CHINESE}</n>\n{' ' * 13}^", message)
        self.error("xml", broken, "--set", "m", "x")
        bad = self.file("a.xml", b"<?xml version='1.0' encoding='Big5'?><m>\xff\xff</m>")
        self.assertIn("no text", self.error("xml", bad, "--set", "m", "x"))

    @unittest.skipIf(WINDOWS, "what limits the program limits Wine, too")
    def test_xml_saves_what_a_full_disk_would_cut(self):
        path = self.file("a.xml", "<m>" + "<a/>" * 50000 + "</m>")
        before = pathlib.Path(path).read_bytes()
        limited = ["bash", "-c", 'trap "" XFSZ; ulimit -f 20; exec "$0" "$@"', PROGRAM, "xml", path, "--set", "m/@k", "v"]
        done = subprocess.run(limited, capture_output=True, cwd=self.folder, env=self.environment())
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertEqual(pathlib.Path(path).read_bytes(), before)
        self.assertEqual([entry.name for entry in self.folder.iterdir()], ["a.xml"])

    # ---- config

    def configuration(self):
        self.file("text/resource.xml",
                  f'<r><section><ECode><res id="1001">{CHINESE}</res></ECode></section></r>'.encode(CHARSET))
        return self.file("Zephyron.xml", f"""<?xml version="1.0" encoding="GB2312"?>
            <Z><Version>1.0</Version><A.B>dots</A.B>
            <LogSetting type="object"><InfoID>7</InfoID></LogSetting>
            <Fonts type="sequence"><item>{CHINESE}</item><item>b</item></Fonts>
            <Layers type="objectsequence"><item><Name>Rivers</Name></item><item><Name>Roads</Name></item></Layers>
            <Printer type="subreg"><Dpi>300</Dpi><Deep type="subreg"><Paper>A4</Paper></Deep></Printer>
            <resource type="external">text\\resource.xml</resource></Z>""".encode("gbk"))

    def test_config(self):
        path = self.configuration()
        for name, value in (("Version", "1.0"), ("A.B", "dots"), ("LogSetting.InfoID", "7"), ("Fonts.1", CHINESE),
                            ("Layers.2.Name", "Roads"), ("Printer.Deep.Paper", "A4"), ("resource.1001", CHINESE),
                            ("LogSetting", "InfoID=7"), ("Fonts", CHINESE + "\nb")):
            self.assertEqual(self.text("config", path, "--get", name), value + "\n")
        for name in ("Missing", "LogSetting.X", "Fonts.0", "Fonts.3", "Layers.3.Name", "resource.1", "Printer.Deep.", "."):
            self.error("config", path, "--get", name)
        tree = json.loads(self.text("config", path, "--json"))
        self.assertEqual(tree["sequence"]["Fonts"], [CHINESE, "b"])
        self.assertEqual(tree["objectsequence"]["Layers"], [{"Name": "Rivers"}, {"Name": "Roads"}])
        self.assertEqual(tree["subreg"]["Printer"]["subreg"]["Deep"]["value"], {"Paper": "A4"})
        self.assertEqual(tree["external"]["resource"]["value"], {"1001": CHINESE})
        self.assertIn(["LogSetting", "object"], self.rows("config", path))
        self.assertEqual(self.text("config", path, "--check"), "")

    def test_config_with_faults(self):
        path = self.configuration()
        (self.folder / "text/resource.xml").unlink()
        self.assertIn("resource.xml", self.error("config", path, "--check"))
        self.assertIn("is missing", self.text("config", path))
        self.file("text/resource.xml", "<r><section>")
        self.assertIn("resource.xml", self.error("config", path, "--check"))
        loop = self.file("loop.xml", '<Z><a type="external">loop.xml</a><b type="external">two.xml</b></Z>')
        self.file("two.xml", '<Z><c type="external">two.xml</c><d type="external">loop.xml</d></Z>')
        self.assertEqual(self.text("config", loop).count("stands above"), 3)
        self.assertIn("line 1", self.error("config", self.file("bad.xml", "<Z><a></Z>"), "--check"))

    # ---- log

    def log(self):
        levels = ["debug", "info", "warning", "error", "fatal"]
        lines = [item(hour, minute, levels[minute % 5], f"message {minute % 3} of {hour}", code=minute - 30, line=minute % 2)
                 for hour in range(3) for minute in range(60)]
        return self.file("app.log", "".join(lines))

    def test_log_queries(self):
        path = self.log()
        rows = self.rows("log", path)
        self.assertEqual(len(rows), 21)
        self.assertEqual(rows[-1], "2026-11-21 02:59:00 fatal 29 viewer.cpp:1 message 2 of 2".split())
        messages = lambda *arguments: [json.loads(line) for line in self.text("log", path, "--json", "--count", "1000", *arguments).splitlines()]
        self.assertEqual(len(messages("--level", "error")), 72)
        self.assertEqual({i["level"] for i in messages("--level", "error")}, {"error", "fatal"})
        self.assertEqual(len(messages("--since", "2026-11-21 01:30", "--until", "2026-11-21 01:31")), 2)
        self.assertEqual(len(messages("--since", "2026-11-21", "--until", "2026-11-21")), 180)
        self.assertEqual([i["code"] for i in messages("--code", "-30")], [-30] * 3)
        self.assertEqual(len(messages("--code", "-30..-29")), 6)
        self.assertEqual(len(messages("--grep", "2 of 1")), 20)
        for nothing in (["--since", "2026-11-22"], ["--grep", "no such"], ["--code", "99"], ["--since", "now"]):
            self.error("log", path, *nothing)
        summary = json.loads(self.text("log", path, "--summary", "--json"))
        self.assertEqual(summary["levels"], {level: 36 for level in ("debug", "info", "warning", "error", "fatal")})
        self.assertEqual(summary["hours"], {f"2026-11-21 0{hour}:00": 60 for hour in range(3)})
        self.assertEqual({s["text"]: s["items"] for s in summary["sources"]}, {"viewer.cpp:0": 90, "viewer.cpp:1": 90})
        self.assertEqual([m["items"] for m in summary["messages"]], [20] * 8)
        self.assertIn(["36"], [row[1:2] for row in self.rows("log", path, "--summary")])

    def test_log_of_other_forms(self):
        gbk = self.file("gbk.log", item(1, 0, "info", CHINESE + "~").encode("gbk").replace(b"~", b"\xff"))
        self.assertIn(r"\xff", self.text("log", gbk))
        self.assertEqual(json.loads(self.text("log", gbk, "--json"))["line"], 7)
        own = self.file("own.log", "[error] 21.11.2026 05:06:07 broken\n")
        row = self.rows("log", own, "--format", "[%LEVEL] %DATETIME %MSG", "--time-format", "%d.%m.%Y %H:%M:%S")[1]
        self.assertEqual(row, "2026-11-21 05:06:07 error 0 broken".split())
        document = self.file("x.log", f"""<?xml version="1.0" encoding="{CHARSET}"?>\r\n<Log>\r\n<LogItem>\r
<DateTime>2026-11-21 09:34:56</DateTime>\r\n<Level>  fatal</Level>\r\n<Description>&lt;{CHINESE}&gt;</Description>\r
</LogItem>\r\n</Log>\r\n""".encode(CHARSET))
        self.assertEqual(self.rows("log", document)[1][:3] + self.rows("log", document)[1][-1:],
                         ["2026-11-21", "09:34:56", "fatal", f"<{CHINESE}>"])
        forged = self.file("f.log", item(1, 0, "info", "a\x1b[31mb\n\tc\x9b"))
        self.assertIn(r"a\x1b[31mb\n\tc", self.text("log", forged))

    def test_log_rolled(self):
        path = self.log()
        self.file("app(1).log", item(5, 0, "info", "newer"))
        self.assertEqual(self.rows("log", path)[-1][-1], "2")
        self.assertEqual(self.rows("log", path, "--rolled")[-1][-1], "newer")

    def test_log_follow(self):
        path = self.log()
        with self.start("log", path, "--follow", "--json", "--grep", "seen") as process:
            def add(file, message):
                with open(self.folder / file, "a") as log:
                    log.write(item(4, 0, "info", message))
                self.assertEqual(json.loads(process.stdout.readline())["message"], message)
            timer = threading_timer(process)
            time.sleep(0.3)
            add("app.log", "seen 1")
            add("app.log", "seen 2")
            os.rename(path, self.folder / "app.log.1")  # as a rotator does
            add("app.log.1", "seen by who still has it open")
            add("app.log", "seen in the new file")
            (self.folder / "app.log").write_text("")  # copied, and cut off
            time.sleep(0.5)
            add("app.log", "seen after the cut")
            add("app_2026-11-22_00-00-01.log", "seen where the log went on")
            timer.cancel()
            process.send_signal(signal.SIGINT)
            status = process.wait(timeout=10)
            self.assertTrue(status != 0 or WINDOWS, status)  # Wine makes 0 of the signal
            self.assertEqual((process.stdout.read(), process.stderr.read()), (b"", b""))

    @unittest.skipIf(WINDOWS, "Wine draws its console by itself")
    def test_log_on_a_terminal(self):
        path = self.log()
        status, shown = self.on_terminal("log", path, "--level", "error", "--count", "2")
        self.assertEqual(status, 0)
        self.assertIn(b"\x1b[31merror\x1b[0m", shown)
        self.assertIn(b"\x1b[1mTIME", shown)
        evil = self.file("evil.xml", "<m>a\x1b]0;owned\x07b\u009b31m</m>")
        self.assertEqual(self.on_terminal("xml", evil, "--get", "m")[1], b"a\\x1b]0;owned\\x07b\\x9b31m\r\n")
        self.assertEqual(self.run_motool_bytes("xml", evil, "--get", "m"), "a\x1b]0;owned\x07b\u009b31m\n".encode())

    def run_motool_bytes(self, *arguments):
        return subprocess.run([PROGRAM, *arguments], cwd=self.folder, env=self.environment(), stdout=subprocess.PIPE).stdout

    # ---- style

    def style(self):
        return self.file("s.xml", "<zpl:Style><zpl:MarkerSize>5.00</zpl:MarkerSize><zpl:LineWidth>0.50</zpl:LineWidth>"
                         "<zpl:LineColor>RGB(10,20,30)</zpl:LineColor><zpl:FillStyle>3</zpl:FillStyle></zpl:Style>")

    def test_style(self):
        path = self.style()
        self.assertIn(["line", "colour", "RGB(10,20,30)"], self.rows("style", path))
        for kind, size in (("point", 44), ("line", 20), ("region", 44), ("all", 44)):
            self.run_motool("style", path, "--to", "record", "--kind", kind, "-o", kind)
            record = (self.folder / kind).read_bytes()
            self.assertEqual(len(record), size)
            self.assertIn(bytes([10, 20, 30, 0]), record)
            two = self.file(kind + "2", record * 2)
            given = ["--kind", kind] if kind == "all" else []  # the others tell themselves
            self.assertEqual(len(self.rows("style", two, *given)), 3)
            self.assertEqual(self.run_motool("style", two, *given, "--to", "record")[0], record * 2)
            self.error("style", self.file("cut", record * 2 + record[:-1]), "--kind", kind)
            for dialect in ("xml", "xml2003"):
                out = self.file("out.xml", self.run_motool("style", two, *given, "--to", dialect)[0])
                self.assertEqual(len(self.rows("style", out)), 3)
                self.assertEqual(self.run_motool("style", out, "--to", "record", "--kind", kind, "--number", "2")[0], record)
        self.assertEqual(self.text("style", path, "--to", "ogr", "--kind", "line"), "PEN(c:#0a141e,w:0.5mm)\n")
        sld = xml.etree.ElementTree.fromstring(self.text("style", path, "--to", "sld", "--kind", "point", "--name", CHINESE, warns=True))
        self.assertEqual(sld.find(".//{*}NamedLayer/{*}Name").text, CHINESE)
        for kind, shapes in (("line", 1), ("region", 2)):
            svg = xml.etree.ElementTree.fromstring(self.text("style", path, "--to", "svg", "--kind", kind))
            self.assertGreaterEqual(len(svg.findall(".//{*}path")), shapes)
        for wrong in (["--to", "record"], ["--to", "ogr"], ["--to", "sld", "--kind", "model"], ["-o", "x"], ["--number", "0"]):
            self.error("style", path, *wrong, status=2)
        self.error("style", path, "--number", "2")
        self.error("style", path, "--to", "svg", "-o", "missing/x.svg")

    def test_style_with_symbols_that_are_no_drawing(self):
        path = self.file("s.xml", "<zpl:Style><zpl:LineStyle>1</zpl:LineStyle><zpl:CustomMarkerSymbol><zpl:MarkerSymbolLength>5"
                         "</zpl:MarkerSymbolLength><zpl:MarkerSymbolString>003C26FF27</zpl:MarkerSymbolString>"
                         "</zpl:CustomMarkerSymbol></zpl:Style>")
        process = self.start("style", path, "--to", "svg")
        out, error = process.communicate()
        xml.etree.ElementTree.fromstring(out)
        self.assertIn(b"left out: marker symbol", error)
        self.assertEqual(process.returncode, 0)

    # ---- text

    def test_text(self):
        text = f"one\ntwo {CHINESE}\n"
        for encoding in ("utf-8", "gbk", "utf-16", "gb18030", "utf-16-le"):
            path = self.file("t", text.encode(encoding))
            out = self.run_motool("text", path, "--from", encoding.replace("utf-16-le", "UTF-16LE"), "--to", "GB18030")[0]
            self.assertEqual(out.decode("gb18030"), text)
            self.run_motool("text", path, "--from", encoding.replace("utf-16-le", "UTF-16LE"), "--to", "UTF-8", "-o", "u")
            self.assertEqual((self.folder / "u").read_bytes().decode(), text)
        path = self.file("t", text)
        self.assertIn(f't:2:5: ISO-8859-1 has no "{CHINESE[0]}", the bytes E5 9F 8E',
                      self.error("text", path, "--from", "UTF-8", "--to", "ISO-8859-1", "-o", "new"))
        self.assertFalse((self.folder / "new").exists())
        self.assertIn("t:2:6: the bytes FF 0A are no text of UTF-8",
                      self.error("text", self.file("t", "a\nb城cde".encode() + b"\xff\n"), "--from", "UTF-8", "--to", "UTF-8"))
        self.assertIn("t:1:4: ", self.error("text", self.file("t", "abc城".encode("utf-16-le")[:-1]), "--from", "UTF-16LE", "--to", "UTF-8"))

    def test_text_guess(self):
        russian = "Съешь же ещё этих мягких французских булок, да выпей чаю. Карта города."
        chinese = "这是一个城市的地图，上面有道路和河流。我们可以在这里看到北京。"
        taiwan = "這是一個城市的地圖，上面有道路和河流。我們可以在這裡看到台北。"
        japanese = "これは都市の地図です。道路と川があります。ここで東京を見ることができます。"
        for text, encoding, name in ((chinese, "gbk", "GBK"), (taiwan, "big5", "BIG5"), (japanese, "cp932", "WINDOWS-31J"),
                                     (japanese, "euc_jp", "EUC-JP"), (russian, "cp1251", "WINDOWS-1251"),
                                     (russian, "koi8_r", "KOI8-R"), (chinese, "utf-8", "UTF-8"),
                                     (chinese, "utf-16", "UTF-16"), ("Karte, Straße", "utf-16-le", "UTF-16LE"),
                                     ("Die Straße führt über Brücken nach Köln.", "cp1252", "WINDOWS-125")):
            path = self.file("t", text.encode(encoding))
            guessed = self.text("text", path, "--guess", locale="C.UTF-8")  # its own charset is likelier
            self.assertTrue(guessed.startswith(name), (encoding, guessed))
            if not name.endswith("125"):
                out = self.run_motool("text", path, "--guess", "--to", "UTF-8", locale="C.UTF-8")[0]
                self.assertEqual(out.decode().lstrip("\ufeff"), text)
        self.error("text", self.file("t", b""), "--guess")

    # ---- lock

    def test_lock(self):
        name = f"motool test {os.getpid()}"
        self.error("lock", name)
        shell = ["cmd", "/c"] if WINDOWS else ["sh", "-c"]
        until_told = [*shell, "set /p told= & exit 0"] if WINDOWS else ["cat"]
        self.run_lock(name, [*shell, "exit 7"], 7)
        if not EMULATED or WINDOWS:  # another emulator does not tell why a program could not be started
            self.run_lock(name, [str(self.folder)], 126)
        self.run_lock(name, ["/no such command"], 127)
        if not WINDOWS:
            self.run_lock(name, ["sh", "-c", "kill -9 $$"], 128 + 9)
            self.assertEqual(self.text("lock", name, "--run", "echo", "--help", "a b"), "--help a b\n")
        with self.start("lock", name, "--run", *until_told, stdin=subprocess.PIPE) as writer:
            self.wait_for(name, ["writing"], writer)
            self.assertIn("not free in time", self.error("lock", name, "--timeout", "0.05", "--run", "true"))
            self.assertIn("not free in time", self.error("lock", name, "--read", "--timeout", "0", "--run", "true"))
            state = json.loads(self.text("lock", name, "--json"))
            self.assertEqual(state["stamp"], 1)
            self.assertIn([str(state["openers"][0]["process"] or "unknown"), "writing"], self.rows("lock", name))
            writer.stdin.close()
            self.assertEqual(writer.wait(timeout=10), 0)
        self.error("lock", name)
        with self.start("lock", name, "--read", "--run", *until_told, stdin=subprocess.PIPE) as reader:
            self.wait_for(name, ["reading"], reader)
            out = self.text("lock", name, "--read", "--timeout", "0", "--run", *shell, "echo in",
                            warns=None if WINDOWS else False)  # Wine misses fonts
            self.assertEqual(out.rstrip(), "in")
            self.error("lock", name, "--timeout", "0", "--run", "true")
            if WINDOWS:
                reader.kill()
                unread = select.poll()
                unread.register(reader.stdin, 0)
                self.assertTrue(unread.poll(10000), "the command has not gone with it")
            else:
                reader.send_signal(signal.SIGTERM)  # the command's to take
                self.assertEqual(reader.wait(timeout=10), 128 + signal.SIGTERM)
        if WINDOWS:
            self.error("lock", name)
            return
        self.assertFalse(pathlib.Path(f"/dev/shm/motoolkit-{os.geteuid()}/{name}.lock".replace(" ", "%20")).exists())

    def run_lock(self, name, command, status):
        process = self.start("lock", name, "--run", *command)
        process.communicate(timeout=60)
        self.assertEqual(process.returncode, status, command)

    @unittest.skipUnless(WINDOWS, "elsewhere the system takes a command's arguments one by one")
    def test_arguments_of_commands(self):
        name = f"motool arguments {os.getpid()}"
        own = str(pathlib.Path(PREFIX) / "bin/motool.exe")
        for argument in ("a b", 'a"b', "a\\", 'a b\\', 'a\\"b', "", "*", "城", "\N{GRINNING FACE}"):
            error = self.error("lock", name, "--run", own, "text", "--guess", argument)
            self.assertIn(f"motool: {argument}: ".replace("\N{GRINNING FACE}", "?"), error)
        self.file("tell.bat", b"@echo off\r\necho %1 %2\r\nexit /b 5\r\n")
        out = self.run_motool("lock", name, "--run", ".\\tell", "a & b", "c", status=5, warns=None)[0]
        self.assertEqual(out, b'"a & b" "c"\r\n')
        for argument in ("%PATH%", 'a"b', "a\nb"):
            self.assertIn("batch file", self.error("lock", name, "--run", "./tell.bat", argument, status=126))

    def wait_for(self, name, states, opener):
        for _ in range(1000):
            process = self.start("lock", name, "--json")
            out = process.communicate()[0]
            openers = json.loads(out)["openers"] if process.returncode == 0 else []
            # Wine's programs have numbers of their own.
            if [o["state"] for o in openers] == states and (WINDOWS or openers[0]["process"] == opener.pid):
                return
            time.sleep(0.01)
        self.fail(out)

    # ---- What goes with it

    @unittest.skipIf(WINDOWS, "the picture is of a terminal that takes UTF-8")
    def test_picture(self):
        root = pathlib.Path(__file__).resolve().parents[2]
        drawn = self.folder / "motool.svg"
        environment = {**os.environ, "PATH": f"{pathlib.Path(PROGRAM).parent}:{os.environ['PATH']}"}
        subprocess.run([sys.executable, root / "tools/draw_terminal.py", drawn, "116", root / "examples/data",
                        "motool log viewer.log --level info --count 12", "motool log viewer.log --summary"],
                       check=True, env=environment)
        xml.etree.ElementTree.parse(drawn)
        self.assertEqual(drawn.read_text(), (root / "docs/motool.svg").read_text())
        self.assertLess(drawn.stat().st_size, 60000)

    def test_man_page_and_completion(self):
        if PREFIX is None or WINDOWS:
            self.skipTest("not installed")
        page = (pathlib.Path(PREFIX) / "share/man/man1/motool.1").read_text()
        script = pathlib.Path(PREFIX) / "share/bash-completion/completions/motool"
        for command in ("xml", "config", "log", "style", "text", "lock"):
            options = {word.rstrip(",") for word in self.text(command, "--help").split() if word.startswith("--")}
            shown = self.complete(script, [command, "--"])
            for option in options - {"--help"}:
                option = option.split(",")[-1]
                self.assertIn(option.replace("-", "\\-"), page)
                self.assertIn(option, shown)
        self.assertEqual(self.complete(script, ["l"]), ["log", "lock"])
        self.assertEqual(self.complete(script, ["log", "a.log", "--level", "f"]), ["fatal"])
        self.file("some.xml", "<a/>")
        self.assertEqual(self.complete(script, ["xml", "so"]), ["some.xml"])

    def complete(self, script, words):
        call = f'source "{script}"; COMP_WORDS=(motool "$@"); COMP_CWORD=$#; _motool; printf "%s\\n" "${{COMPREPLY[@]}}"'
        done = subprocess.run(["bash", "-c", call, "bash", *words], capture_output=True, text=True, cwd=self.folder)
        self.assertEqual(done.stderr, "")
        return done.stdout.split()


def threading_timer(process):
    """Ends a process that never says what it is waited for."""
    import threading
    timer = threading.Timer(30, process.kill)
    timer.start()
    return timer


if __name__ == "__main__":
    PROGRAM, SCRATCH, *rest = sys.argv[1:]
    PREFIX = rest[0] if rest else None
    unittest.main(argv=sys.argv[:1])
