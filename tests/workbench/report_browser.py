#!/usr/bin/env python3
"""What the report's page is in a real browser: report_browser.py VORNA_KERNELS MAKE_DUMPS PERF_SAMPLE

Drives Chromium by the WebDriver protocol of chromedriver, with the standard library alone. Exit status 77, and why,
where either is missing.
"""

import base64
import contextlib
import gzip
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.error
import urllib.request

VORNA_KERNELS, MAKE_DUMPS, PERF_SAMPLE = sys.argv[1:4]
CHROMIUM = shutil.which("chromium") or shutil.which("chromium-browser") or shutil.which("google-chrome")
CHROMEDRIVER = shutil.which("chromedriver")

LONGEST = 1800  # seconds: only what hangs takes so long, also on a machine with much else to do

HOSTILE_NAMES = [
    "</script><img src=x onerror=alert(1)>",
    "<!--<script>",
    "\"quoted\" & 'it'",
    "line\u2028separator",
    "a+0x4",
    ":kernels",
    "right-to-left \u202egnp",
    "kernel_7",  # there are two of it
    "",
    "long" * 100,
]
INVALID_UTF8 = b"bad\xff\xfename"


class Browser:
    """A session of headless Chromium that may not reach any network."""

    def __init__(self):
        self.profile = tempfile.mkdtemp()
        self.session = ""
        self.driver = subprocess.Popen([CHROMEDRIVER, "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                       text=True)
        for line in self.driver.stdout:
            if started := re.search(r"started successfully on port (\d+)", line):
                self.port = int(started[1])
                break
        arguments = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     "--disable-dev-shm-usage", "--window-size=1280,1000", "--user-data-dir=" + self.profile,
                     "--host-resolver-rules=MAP * ~NOTFOUND"]
        capabilities = {"browserName": "chrome", "goog:loggingPrefs": {"browser": "ALL"},
                        "timeouts": {"script": 1000 * LONGEST, "pageLoad": 1000 * LONGEST},
                        "goog:chromeOptions": {"binary": CHROMIUM, "args": arguments}}
        self.session = "/session/" + self.call("POST", "/session",
                                               {"capabilities": {"alwaysMatch": capabilities}})["sessionId"]

    def call(self, method, path, body=None):
        request = urllib.request.Request(f"http://127.0.0.1:{self.port}{self.session}{path}", method=method,
                                         data=None if body is None else json.dumps(body).encode(),
                                         headers={"Content-Type": "application/json"})
        try:
            with urllib.request.urlopen(request, timeout=LONGEST) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(f"{path}: {error.read().decode()[:1000]}") from None

    def close(self):
        with contextlib.suppress(Exception):
            self.call("DELETE", "")
        self.driver.terminate()
        self.driver.wait()
        self.driver.stdout.close()
        shutil.rmtree(self.profile, ignore_errors=True)

    def open(self, page, fragment=""):
        self.call("POST", "/url", {"url": "about:blank"})  # so that another fragment is a new load
        self.console()
        self.call("POST", "/url", {"url": "file://" + page + (fragment and "#" + fragment)})

    def run(self, script, *arguments):
        return self.call("POST", "/execute/sync", {"script": script, "args": list(arguments)})

    def run_async(self, script, *arguments):
        return self.call("POST", "/execute/async", {"script": script, "args": list(arguments)})

    def devtools(self, command, **parameters):
        return self.call("POST", "/goog/cdp/execute", {"cmd": command, "params": parameters})

    def console(self):
        return [entry["message"] for entry in self.call("POST", "/se/log", {"type": "browser"})]

    def keys(self, *keys):
        actions = [{"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]
        self.call("POST", "/actions", {"actions": [{"type": "key", "id": "keyboard", "actions": actions}]})

    def click(self, selector):
        self.run("document.querySelector(arguments[0]).scrollIntoView({block: 'center'})", selector)
        element = self.call("POST", "/element", {"using": "css selector", "value": selector})
        self.call("POST", f"/element/{next(iter(element.values()))}/click", {})

    def texts(self, selector):
        return self.run("return [...document.querySelectorAll(arguments[0])].map((e) => e.textContent)", selector)

    def wait_for(self, condition, *arguments):
        end = time.monotonic() + LONGEST
        while not (value := self.run("return " + condition, *arguments)):
            if time.monotonic() > end:
                raise AssertionError("never came true: " + condition)
            time.sleep(0.05)
        return value

    def in_view(self, element_id):
        return ("(() => { const r = document.getElementById(arguments[0])?.getBoundingClientRect();"
                " return r && r.height > 0 && r.top >= 0 && r.top < innerHeight; })()"), element_id


TAB, ENTER, ESCAPE, RIGHT, END = "\ue004", "\ue007", "\ue00c", "\ue014", "\ue010"


def make_dumps(directory, count, names=()):
    os.makedirs(directory)
    subprocess.run([MAKE_DUMPS, directory, str(count), *names], check=True)
    return directory


def change_instruction(dump):
    """Makes the fourth instruction before the last one a NOP."""
    with open(dump, "r+b") as file:
        at = file.read().index(bytes.fromhex("c0035fd6")) - 4 * 4
        file.seek(at)
        file.write(bytes.fromhex("1f2003d5"))


def make_report(dumps, page, *options):
    result = subprocess.run([VORNA_KERNELS, "report", dumps, "-o", page, *options], capture_output=True, text=True,
                            check=False)
    assert result.returncode == 0, result.stderr
    return page


class Report(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.mkdtemp()
        cls.addClassCleanup(shutil.rmtree, cls.directory, ignore_errors=True)
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)
        cls.few_dumps = make_dumps(cls.path("few"), 40)
        cls.few = make_report(cls.few_dumps, cls.path("few.html"))

    @classmethod
    def path(cls, name):
        return os.path.join(cls.directory, name)

    def open(self, page, fragment=""):
        self.browser.open(page, fragment)
        self.addCleanup(lambda: self.assertEqual(self.browser.console(), []))

    def column(self, key):
        """The visible cells of a column, in their order."""
        return self.browser.run("""
            const at = [...document.querySelectorAll('.kernels thead th')].findIndex(
                (head) => head.dataset.key === arguments[0]);
            return [...document.querySelectorAll('.kernels tbody tr')].filter((row) => row.offsetHeight > 0).map(
                (row) => row.cells[at].textContent)""", key)

    def numbers(self, key):
        return [int(text.replace(",", "")) for text in self.column(key)]

    # ---- What is there after loading

    def test_shows_every_kernel_in_strips_table_graph_and_listings(self):
        self.open(self.few)
        names = [f"kernel_{i}" for i in range(40)]
        self.assertEqual(self.column("name"), names)
        self.assertEqual(self.browser.texts("article h3"), names)
        self.assertEqual(sorted(set(self.browser.texts(".strip a"))), sorted(names))
        self.assertEqual(len(self.browser.texts(".strip")), 2)
        data = self.browser.run("return JSON.parse(document.getElementById(':data').textContent)")
        self.assertEqual(data["version"], 1)
        called = {callee for kernel in data["kernels"] for callee in kernel["callees"]}
        linked = {k["name"] for i, k in enumerate(data["kernels"]) if k["callees"] or i in called}
        self.assertEqual(set(self.browser.texts("#\\:graph a title")), linked)

    def test_places_blocks_to_scale(self):
        self.open(self.few)
        blocks = self.browser.run("""
            return [...document.querySelectorAll('.strip')].map((strip) => {
                const whole = strip.getBoundingClientRect();
                return {width: whole.width, blocks: [...strip.querySelectorAll('a')].map((block) => {
                    const r = block.getBoundingClientRect();
                    return {title: block.title, at: r.left - whole.left, width: r.width};
                })};
            })""")
        heads = self.browser.texts(".strips h3")
        scales = []
        for head, strip in zip(heads, blocks):
            base, length = int(head.split(",")[0], 16), int(re.search(r", ([\d,]+) bytes", head)[1].replace(",", ""))
            scales.append(strip["width"] / length)
            for block in strip["blocks"]:
                _, address, size = re.search(r"(code|constants) at (0x[0-9a-f]+), ([\d,]+) bytes",
                                             block["title"]).groups()
                self.assertAlmostEqual(block["at"], (int(address, 16) - base) * scales[-1], delta=0.6)
                self.assertAlmostEqual(block["width"], int(size.replace(",", "")) * scales[-1], delta=0.6)
        self.assertAlmostEqual(scales[0], scales[1], delta=scales[0] / 100)

    def test_draws_callers_above_callees(self):
        self.open(self.few)
        edges = self.browser.run("""
            const top = (kernel) => document.querySelector(`#\\\\:graph a[data-kernel="${kernel}"] rect`).y.baseVal.value;
            return [...document.querySelectorAll('#\\\\:graph path[data-from]')].map(
                ({dataset}) => [top(dataset.from), top(dataset.to)])""")
        self.assertGreater(len(edges), 20)
        for caller, callee in edges:
            self.assertLess(caller, callee)

    def test_listing_has_labels_arrows_and_links(self):
        self.open(self.few)
        listing = self.browser.run("""
            const article = document.getElementById('kernel_7');
            const rows = [...article.querySelectorAll('.rows tr')];
            return {
                texts: rows.map((row) => row.innerText.split('\\t').map((t) => t.trim()).filter(Boolean).join('|')),
                arrows: article.querySelectorAll('.arrows path.back.head').length,
                links: [...article.querySelectorAll('.rows td:not(.offset) a')].map(
                    (a) => [a.textContent, a.getAttribute('href')]),
            }""")
        self.assertRegex(listing["texts"][0], r"^\+00\|[0-9a-f]{8}\|adrp  x3, \.rodata")
        self.assertRegex(listing["texts"][-1], r"^\+[0-9a-f]+\|d65f03c0\|ret")
        self.assertEqual(listing["arrows"], 1)
        label, target = listing["links"][0]
        self.assertEqual(target, "#kernel_7+0x" + label.removeprefix(".L"))
        self.assertTrue(any(f"|{label}:|" in text for text in listing["texts"]))
        for name, target in listing["links"][1:]:
            self.assertEqual(target, "#" + name)

    def test_leaves_out_what_there_is_no_choice_of_and_says_that_nothing_calls(self):
        self.open(make_report(make_dumps(self.path("one"), 1), self.path("one.html")))
        self.assertEqual(self.browser.run("return [':colour', ':one-scale'].map("
                                          "(id) => document.getElementById(id).offsetHeight)"), [0, 0])
        self.assertEqual(self.browser.texts("#\\:graph-of"), ["No kernel calls another."])

    # ---- Sorting and filtering

    def test_sorts_by_a_column_and_back(self):
        self.open(self.few)
        code = self.numbers("code")
        self.browser.click("th[data-key=code] button")
        self.assertEqual(self.numbers("code"), sorted(code, reverse=True))
        self.assertEqual(self.browser.run("return document.querySelector('th[aria-sort]').outerHTML.includes("
                                          "'aria-sort=\"descending\"')"), True)
        self.browser.click("th[data-key=code] button")
        self.assertEqual(self.numbers("code"), sorted(code))
        self.browser.click("th[data-key=name] button")
        self.assertEqual(self.column("name"), sorted(f"kernel_{i}" for i in range(40)))
        self.browser.click("th[data-key=address] button")
        self.assertEqual(self.column("name"), [f"kernel_{i}" for i in range(40)])

    def test_filters_by_name_and_conditions(self):
        self.open(self.few)
        code = dict(zip(self.column("name"), self.numbers("code")))
        self.browser.keys("/")
        self.assertEqual(self.browser.run("return document.activeElement.id"), ":filter")
        self.browser.keys(*"_1")
        self.assertEqual(self.column("name"), [name for name in code if "_1" in name])
        dimmed = self.browser.texts(".strip a.dimmed")
        self.assertTrue(dimmed)
        self.assertFalse([name for name in dimmed if "_1" in name])
        limit = code["kernel_12"]
        self.browser.keys(*f" code>={limit}")
        self.assertEqual(self.column("name"), [n for n, size in code.items() if "_1" in n and size >= limit])
        self.assertEqual(self.browser.texts("#\\:shown"), [f"{len(self.column('name'))} of 40"])
        shown = self.column("name")
        self.browser.run("document.getElementById(':filter').value = ''")
        self.browser.keys(*f"_1 code >= {limit}")
        self.assertEqual(self.column("name"), shown)
        self.browser.keys(*" /nobody")
        self.assertTrue(self.browser.run("return document.getElementById(':filter').value").endswith(" /nobody"))
        self.assertEqual(self.column("name"), [])
        self.browser.keys(ESCAPE)
        self.assertEqual(len(self.column("name")), 40)
        self.assertEqual(self.browser.texts(".strip a.dimmed"), [])

    # ---- Fragments and keyboard

    def test_fragment_of_an_instruction_shows_it(self):
        self.open(self.few, "kernel_30+0x18")
        self.browser.wait_for(*self.browser.in_view("kernel_30+0x18"))
        self.assertEqual(self.browser.run("return document.querySelector('.here').id"), "kernel_30+0x18")

    def test_links_lead_to_the_kernel(self):
        self.open(self.few)
        for link in (".kernels a[href='#kernel_33']", "#\\:graph a[data-kernel='33']",
                     ".strip a[data-kernel='33']"):
            self.browser.run("location.hash = ''; scrollTo(0, 0)")
            self.browser.run("document.querySelector(arguments[0]).dispatchEvent(new MouseEvent('click',"
                             " {bubbles: true, cancelable: true}))", link)
            self.browser.wait_for(*self.browser.in_view("kernel_33"))
            self.assertEqual(self.browser.run("return location.hash"), "#kernel_33")

    def test_arrow_keys_go_from_block_to_block_and_say_which(self):
        self.open(self.few)
        self.browser.run("document.querySelector('.strip a').focus()")
        self.browser.keys(RIGHT, RIGHT)
        self.assertEqual(self.browser.run("return document.activeElement.textContent"), "kernel_2")
        self.assertRegex(self.browser.texts("#\\:under")[0], r"^kernel_2: code at 0x7f0000000[0-9a-f]+, \d+ bytes$")
        self.assertEqual(self.browser.run("return document.querySelectorAll('.kernels tr.lit th')[0].textContent"),
                         "kernel_2")
        self.browser.keys(ENTER)
        self.browser.wait_for(*self.browser.in_view("kernel_2"))
        self.assertEqual(self.browser.run("return document.querySelectorAll('.strip a[tabindex=\"0\"]').length"), 1)

    def test_focus_is_visible_wherever_the_keyboard_leads(self):
        self.open(self.few)
        for _ in range(25):
            self.browser.keys(TAB)
            style = self.browser.run("const s = getComputedStyle(document.activeElement);"
                                     " return [document.activeElement.outerHTML.slice(0, 80), s.outlineStyle,"
                                     " s.outlineWidth]")
            self.assertEqual(style[1:], ["solid", "2px"], style[0])

    def test_zooms_the_strips(self):
        self.open(self.few)
        width = "return document.querySelector('.strip').getBoundingClientRect().width"
        before = self.browser.run(width)
        self.browser.click("#\\:zoom-in")
        self.assertAlmostEqual(self.browser.run(width), 2 * before, delta=1)
        self.browser.click("#\\:zoom-fit")
        self.assertAlmostEqual(self.browser.run(width), before, delta=1)

    # ---- Names

    def test_hostile_names_stay_text(self):
        dumps = make_dumps(self.path("hostile"), 8, [name.encode() for name in HOSTILE_NAMES] + [INVALID_UTF8])
        page = make_report(dumps, self.path("hostile.html"), "--against", make_dumps(self.path("harmless"), 8))
        shown = [name or "(no name)" for name in HOSTILE_NAMES] + ["bad\ufffd\ufffdname"]
        self.open(page)
        self.assertEqual(self.column("name")[-len(shown):], shown)
        self.assertEqual(self.browser.texts("article h3")[-len(shown):], shown)
        self.assertEqual(set(shown) - set(self.browser.texts("#\\:graph a title")), set())
        data = self.browser.run("return JSON.parse(document.getElementById(':data').textContent)")
        self.assertEqual([kernel["name"] for kernel in data["kernels"]][-len(shown):], shown)
        self.assertEqual(self.browser.run("return document.querySelectorAll('img').length"), 0)
        self.assertEqual(self.browser.run("return [document.documentElement, ...document.querySelectorAll('.card')]"
                                          ".filter((box) => box.scrollWidth > box.clientWidth).length"), 0)
        ids = self.browser.run("return [...document.querySelectorAll('[id]')].map((element) => element.id)")
        self.assertEqual(len(ids), len(set(ids)))
        for kernel in data["kernels"]:
            self.browser.run("location.hash = arguments[0]", kernel["id"])
            self.browser.wait_for("document.querySelector('article.here')?.id === arguments[0]", kernel["id"])
            self.assertEqual(self.browser.texts("article.here h3"), [kernel["name"]])
            row = kernel["id"] + "+0x4"
            self.browser.run("location.hash = arguments[0]", row)
            self.browser.wait_for("document.querySelector('tr.here')?.id === arguments[0]", row)
        with open(page, encoding="utf-8") as file:
            self.assertNotIn("<img", file.read())

    def test_policy_lets_nothing_else_run(self):
        self.browser.open(self.few)
        self.browser.run("""
            document.body.insertAdjacentHTML('beforeend', '<img src=x onerror="window.ran = 1">');
            const script = document.createElement('script');
            script.textContent = 'window.ran = 2';
            document.body.append(script);""")
        refused = []
        end = time.monotonic() + LONGEST
        while len(refused) < 2 and time.monotonic() < end:
            refused += self.browser.console()
        self.assertIsNone(self.browser.run("return window.ran"))
        self.assertEqual(len(refused), 2)
        self.assertTrue(all("Content Security Policy" in line for line in refused), refused)

    def test_page_asks_for_nothing(self):
        self.open(self.few)
        self.assertEqual(self.browser.run("return performance.getEntriesByType('resource').map((e) => e.name)"), [])

    # ---- Without JavaScript, on paper, in the dark

    def test_table_and_listings_are_there_without_javascript(self):
        self.browser.devtools("Emulation.setScriptExecutionDisabled", value=True)
        self.addCleanup(self.browser.devtools, "Emulation.setScriptExecutionDisabled", value=False)
        self.open(self.few, "kernel_30+0x18")
        self.assertFalse(self.browser.run("return document.documentElement.classList.contains('running')"))
        self.assertEqual(len(self.column("name")), 40)
        self.assertEqual(self.browser.run("return [...document.querySelectorAll('.listing')].filter("
                                          "(listing) => listing.offsetHeight > 200).length"), 40)
        self.browser.wait_for(*self.browser.in_view("kernel_30+0x18"))
        self.assertEqual(self.browser.run("return document.getElementById(':filter').offsetHeight"), 0)

    def test_print_leaves_out_what_paper_cannot_do(self):
        self.open(self.few)
        longest = "return getComputedStyle(document.querySelector('.strips')).maxHeight"
        self.assertLess(float(self.browser.run(longest).removesuffix("px")), self.browser.run("return innerHeight"))
        self.browser.devtools("Emulation.setEmulatedMedia", media="print")
        self.addCleanup(self.browser.devtools, "Emulation.setEmulatedMedia", media="")
        height = "return document.querySelector(arguments[0]).offsetHeight"
        for selector in ("nav", "#\\:filter", "#\\:zoom-in"):
            self.assertEqual(self.browser.run(height, selector), 0, selector)
        for selector in (".kernels", ".strip", "#kernel_39 .rows"):
            self.assertGreater(self.browser.run(height, selector), 0, selector)
        self.assertEqual(self.browser.run(longest), "none")
        self.assertEqual(self.browser.run("return getComputedStyle(document.body).backgroundColor"),
                         "rgb(255, 255, 255)")

    def test_print_divides_listings_among_pages(self):
        self.open(self.few)
        pdf = base64.b64decode(self.browser.devtools("Page.printToPDF", paperWidth=8, paperHeight=10)["data"])
        pages = len(re.findall(rb"/Type */Page\b", pdf))
        self.assertGreater(pages, 20)
        self.assertLess(pages, 40)  # as many as there are kernels, if each began on a page of its own

    def test_colours_can_be_read_in_light_and_dark(self):
        for scheme in ("light", "dark"):
            self.open(self.few)
            self.browser.devtools("Emulation.setEmulatedMedia",
                                  features=[{"name": "prefers-color-scheme", "value": scheme}])
            self.addCleanup(self.browser.devtools, "Emulation.setEmulatedMedia", features=[])
            measured = self.browser.run("""
                const luminance = (colour) => {
                    const [r, g, b] = colour.match(/\\d+/g).map((part) => {
                        const c = part / 255;
                        return c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4;
                    });
                    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
                };
                const probe = document.body.appendChild(document.createElement('p'));
                const colour = (name) => {
                    probe.style.color = `var(${name})`;
                    return luminance(getComputedStyle(probe).color);
                };
                const contrast = (a, b) => (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
                const result = {ratios: {}, scales: {}};
                const strip = document.querySelector('.strip');
                strip.replaceChildren();
                for (const [kind, classes] of [['size', 8], ['heat', 8], ['change', ['same', 'constants', 'moved',
                        'references', 'renamed', 'reordered', 'code', 'new', 'gone']]]) {
                    document.documentElement.dataset.colour = kind;
                    const all = Array.isArray(classes) ? classes : [...Array(classes).keys()].map((i) => kind[0] + i);
                    result.scales[kind] = all.map((name) => {
                        const block = strip.appendChild(document.createElement('a'));
                        block.className = name;
                        const style = getComputedStyle(block);
                        const [ground, ink] = [luminance(style.backgroundColor), luminance(style.color)];
                        result.ratios[`${kind} ${name}`] = contrast(ground, ink);
                        return ground;
                    });
                }
                for (const ground of ['--page', '--panel'])
                    for (const ink of ['--ink', '--soft', '--link', '--error', '--warning', '--note', '--backward'])
                        result.ratios[`${ink} on ${ground}`] = contrast(colour(ground), colour(ink));
                return result""")
            for pair, ratio in measured["ratios"].items():
                self.assertGreaterEqual(ratio, 4.5, f"{scheme}: {pair}")
            for kind in ("size", "heat"):
                scale = measured["scales"][kind]
                self.assertEqual(scale, sorted(scale, reverse=scheme == "light"), f"{scheme}: {kind}")

    # ---- Profile and comparison

    def test_profile_heats_kernels_and_instructions(self):
        text = self.path("perf.txt")
        with gzip.open(os.path.join(PERF_SAMPLE, "perf-script.txt.gz")) as packed, open(text, "wb") as file:
            shutil.copyfileobj(packed, file)
        page = make_report(os.path.join(PERF_SAMPLE, "dumps"), self.path("profile.html"), "--perf-script", text)
        self.open(page, "wfta_5040")
        # 23,238 of 24,180 samples, all of one period, are in the kernel, and 6,402 of these at +0x88.
        self.assertEqual(self.column("share"), ["0.02", "0.02", "0.01", "0.01", "96.1"])
        self.assertIn("96.2 % in kernels", self.browser.texts(".card strong"))
        self.assertEqual(self.browser.run("return document.documentElement.dataset.colour"), "heat")
        hottest = self.browser.run("""
            const row = document.getElementById('wfta_5040+0x88');
            return [row.querySelector('.share').textContent, row.querySelector('.share').className]""")
        self.assertEqual(hottest, ["27.5", "share h7"])
        self.assertIn("; 0.02 % of all in wfta_short_7", self.browser.texts("[id='wfta_5040+0x84'] .comment"))
        bars = self.browser.run("return [...document.querySelectorAll('.kernels td.share')].map("
                                "(cell) => cell.style.getPropertyValue('--bar'))")
        self.assertEqual(bars[-1], "100.00%")
        self.browser.click("input[value=size]")
        self.assertEqual(self.browser.run("return document.documentElement.dataset.colour"), "size")

    def test_comparison_shows_both_sides(self):
        before = self.path("before")
        shutil.copytree(self.few_dumps, before)
        os.remove(os.path.join(before, "39"))
        change_instruction(os.path.join(before, "5"))
        after = self.path("after")
        shutil.copytree(self.few_dumps, after)
        os.remove(os.path.join(after, "38"))
        self.open(make_report(after, self.path("diff.html"), "--against", before))
        change = dict(zip(self.column("name"), self.column("change")))
        self.assertEqual({name: kind for name, kind in change.items() if kind != "same"},
                         {"kernel_5": "code", "kernel_39": "new", "kernel_38": "gone"})
        differing = self.browser.run("""
            return [...document.querySelectorAll('#kernel_5 .rows .differs')].map((row) =>
                [row.querySelector('.before.old').textContent, row.id, row.querySelector('.before.offset').id])""")
        self.assertEqual(len(differing), 1)
        self.assertEqual(differing[0][0], "nop")
        offset = differing[0][1].removeprefix("kernel_5")
        self.assertEqual(differing[0][2], "kernel_5:old" + offset)
        self.browser.run("location.hash = arguments[0]", "kernel_5:old" + offset)
        self.browser.wait_for("document.querySelector('td.here')?.id === arguments[0]", "kernel_5:old" + offset)
        marked = self.browser.run("""
            const [here] = document.querySelectorAll('td.here');
            const probe = document.body.appendChild(document.createElement('p'));
            probe.style.background = 'var(--here)';
            return [probe, here, here.nextSibling].map((one) => getComputedStyle(one).backgroundColor)""")
        self.assertEqual(len(set(marked)), 1, marked)
        self.assertEqual(self.browser.run("return document.querySelectorAll('#kernel_6 .old').length"), 0)
        self.assertEqual(self.browser.texts(".card dd a"), ["kernel_5", "kernel_39", "kernel_38"])

    # ---- Large sets

    def test_script_draws_the_listings_that_small_sets_have(self):
        large = make_dumps(self.path("large"), 201)
        small = self.path("small")
        shutil.copytree(large, small)
        os.remove(os.path.join(small, "200"))
        before = self.path("small_before")
        shutil.copytree(small, before)
        change_instruction(os.path.join(before, "5"))
        listings = """
            return [...document.querySelectorAll('article')].slice(0, 200).map((article) =>
                article.querySelector('.listing').innerHTML + article.querySelector('.constants').innerHTML)"""
        self.open(make_report(small, self.path("small.html"), "--against", before))
        static = self.browser.run(listings)
        self.assertEqual(len(static), 200)
        self.assertEqual(len([listing for listing in static if 'class="differs"' in listing]), 1)
        self.open(make_report(large, self.path("large.html"), "--against", before))
        self.assertGreater(self.browser.run("return document.querySelectorAll('article.undrawn').length"), 100)
        self.browser.run_async("""
            const done = arguments[0];
            const [next, ...others] = document.querySelectorAll('article.undrawn');
            const all = [next, ...others].map((article) => article.id);
            addEventListener('hashchange', go);
            function go() {
                if (!all.length)
                    return done();
                location.hash = all.shift();
            }
            go();""")
        self.assertEqual(self.browser.run(listings), static)

    def test_two_thousand_kernels(self):
        dumps = make_dumps(self.path("many"), 2000)
        page = make_report(dumps, self.path("many.html"))
        self.browser.devtools("Performance.enable", timeDomain="threadTicks")
        self.addCleanup(self.browser.devtools, "Performance.disable")
        self.open(page)
        opened = self.thread_time()
        print(f"2,000 kernels, {os.path.getsize(page) >> 20} MiB: the page's thread took {opened:.1f} s to open it",
              file=sys.stderr)
        self.assertLess(opened, 20)
        undrawn = "return document.querySelectorAll('article.undrawn').length"
        self.assertGreater(self.browser.run(undrawn), 1900)
        self.assertEqual(len(self.column("name")), 200)
        self.browser.run("location.hash = 'kernel_1700+0x20'")
        self.browser.wait_for(*self.browser.in_view("kernel_1700+0x20"))
        self.assertEqual(self.browser.run("return document.querySelector('.here').id"), "kernel_1700+0x20")
        self.assertGreater(self.browser.run(undrawn), 1800)
        self.browser.click("th[data-key=code] button")
        code = self.numbers("code")
        self.assertEqual(code, sorted(code, reverse=True))
        self.browser.run("document.getElementById(':filter').focus()")
        self.browser.keys(*"_199")
        self.assertEqual(len(self.column("name")), 11)
        self.assertIn("of 1,", self.browser.texts("#\\:graph-of")[0])
        before = self.thread_time()
        self.browser.run_async("""
            const done = arguments[0];
            let at = 0;
            scrollTo(0, document.getElementById(':listings').offsetTop);
            requestAnimationFrame(function step() {
                scrollBy(0, 400);
                ++at < 60 ? requestAnimationFrame(step) : done();
            });""")
        self.assertLess(self.thread_time() - before, 20)  # of 60 frames

    def thread_time(self):
        """Seconds of the processor's time that the page's thread has had."""
        metrics = self.browser.devtools("Performance.getMetrics")["metrics"]
        return next(m["value"] for m in metrics if m["name"] == "TaskDuration")

    # ---- The file

    def test_same_input_makes_the_same_bytes(self):
        again = make_report(self.few_dumps, self.path("again.html"))
        with open(self.few, "rb") as first, open(again, "rb") as second:
            self.assertEqual(first.read(), second.read())


if __name__ == "__main__":
    for program, package in ((CHROMIUM, "chromium"), (CHROMEDRIVER, "chromium-driver")):
        if program is None:
            print(f"skipped: no {package} on this machine")
            sys.exit(77)
    unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
