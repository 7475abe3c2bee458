#!/usr/bin/env python3
"""What the report's page is in a real browser: page_browser.py VORNA_KERNELS RANDOM_DUMPS MAKE_DUMPS PERF_SAMPLE

Exit status 77, and why, where Chromium, its driver or python3-selenium is missing.
"""

import gzip
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

CHROMIUM = shutil.which("chromium") or shutil.which("chromium-browser") or shutil.which("google-chrome")
CHROMEDRIVER = shutil.which("chromedriver")
try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import WebDriverWait
except ModuleNotFoundError:
    print("skipped: no python3-selenium on this machine")
    sys.exit(77)
for program, package in ((CHROMIUM, "chromium"), (CHROMEDRIVER, "chromium-driver")):
    if program is None:
        print(f"skipped: no {package} on this machine")
        sys.exit(77)

VORNA_KERNELS, RANDOM_DUMPS, MAKE_DUMPS, PERF_SAMPLE = sys.argv[1:5]
PATIENCE = 600  # seconds, for a busy machine: tests wait for what they want, not for a time

HOSTILE_NAMES = [
    "</script><img src=x onerror=alert(1)>",
    "<!--<script>",
    "\"quoted\" & 'it'",
    "line\u2028separator",
    "a+0x4",
    ":kernels",
    "right-to-left \u202egnp",
    "größe_вектор_核",
    "kernel_1",  # there are two of it, in two mappings
    "",
    "long" * 100,
]
INTERFACES = """\
kernel registers
    ldr x3, [x1]
    adds x0, x0, x2
    str x3, [x1, #8]
    ret
kernel vectors
    fadd v0.2d, v0.2d, v1.2d
    fadd v2.2d, v2.2d, v3.2d
    fadd v4.2d, v4.2d, v5.2d
    fadd v0.2d, v0.2d, v2.2d
    fadd v0.2d, v0.2d, v4.2d
    str q0, [x0]
    ret
kernel predicated
    ptrue p0.d
    ld1d { z0.d }, p0/z, [x0]
    st1d { z0.d }, p0, [x0]
    ret
kernel framed
    stp x29, x30, [sp, #-48]!
    stp x19, x20, [sp, #16]
    str x1, [sp, #32]
    mov x19, x0
    blr x2
    ldr x1, [sp, #32]
    str x1, [x19]
    ldp x19, x20, [sp, #16]
    ldp x29, x30, [sp], #48
    ret
kernel unknown
    sub x9, sp, x0
    mov sp, x9
    add sp, sp, x0
    ret
"""
GATHER = """\
kernel gather
1:  ldr w6, [x3], #4
    %s
    cbnz x5, 1b
    ret
kernel calls
    str x30, [sp, #-16]!
    bl gather
    ldr x30, [sp], #16
    ret
kernel short
    fadd d0, d0, d1
    ret
"""
SLOW_ORDER = "ldr q0, [x0, w6, uxtw #4]\n str q0, [x4], #16\n sub x5, x5, #1"
FAST_ORDER = "sub x5, x5, #1\n ldr q0, [x0, w6, uxtw #4]\n str q0, [x4], #16"
HAS_COST = subprocess.run([VORNA_KERNELS, "cost", "--cpu=help"], capture_output=True, check=False).returncode == 0
INVALID_UTF8 = b"bad\xff\xfename"

# The contrast of every element's own text with its ground, as WCAG defines it, where it is less than 4.5.
CONTRAST = """
    const luminance = ([r, g, b]) => {
        const [x, y, z] = [r, g, b].map((part) => {
            const c = part / 255;
            return c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4;
        });
        return 0.2126 * x + 0.7152 * y + 0.0722 * z;
    };
    const parts = (colour) => colour.match(/[\\d.]+/g).map(Number);
    const ground = (element) => {
        for (let at = element; at; at = at.parentElement) {
            const box = at.tagName === 'a' && at.querySelector('rect');
            const colour = parts(box ? getComputedStyle(box).fill : getComputedStyle(at).backgroundColor);
            if (colour.length < 4 || colour[3] > 0)
                return colour;
        }
    };
    const bad = [];
    let seen = 0;
    for (const element of document.querySelectorAll('body *:not(script):not(style):not(title)')) {
        const own = [...element.childNodes].some((node) => node.nodeType === 3 && node.data.trim());
        if (!own || !element.getClientRects().length)
            continue;
        const style = getComputedStyle(element);
        const [a, b] = [luminance(parts(element instanceof SVGElement ? style.fill : style.color)),
            luminance(ground(element))];
        const contrast = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
        ++seen;
        if (contrast < 4.5)
            bad.push([contrast, element.outerHTML.slice(0, 120)]);
    }
    return [seen, bad]"""


def make_driver(directory):
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    for argument in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     "--disable-dev-shm-usage", "--window-size=1280,1000", "--user-data-dir=" + directory,
                     "--host-resolver-rules=MAP * ~NOTFOUND"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service(CHROMEDRIVER), options=options)
    driver.command_executor.set_timeout(PATIENCE)
    driver.set_script_timeout(PATIENCE)
    driver.set_page_load_timeout(PATIENCE)
    return driver


def make_dumps(directory, count, names=()):
    os.makedirs(directory)
    subprocess.run([RANDOM_DUMPS, directory, str(count), *names], check=True)
    return directory


def assemble_dumps(directory, source):
    os.makedirs(directory)
    subprocess.run([MAKE_DUMPS, directory], input=source, text=True, check=True)
    return directory


def replace_word(dump, words_before_end, word):
    """Replaces the instruction that many words before the last one, which is a RET."""
    with open(dump, "r+b") as file:
        at = file.read().index(bytes.fromhex("c0035fd6")) - 4 * words_before_end
        file.seek(at)
        file.write(word.to_bytes(4, "little"))


def make_report(dumps, page, *options):
    result = subprocess.run([VORNA_KERNELS, "report", dumps, "-o", page, *options], capture_output=True, text=True,
                            check=False)
    assert result.returncode == 0, result.stderr
    return page


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.mkdtemp()
        cls.addClassCleanup(shutil.rmtree, cls.directory, ignore_errors=True)
        cls.driver = make_driver(cls.path("browser"))
        cls.addClassCleanup(cls.driver.quit)
        cls.few_dumps = make_dumps(cls.path("few"), 40)
        cls.few = make_report(cls.few_dumps, cls.path("few.html"))
        text = cls.path("perf.txt")
        with gzip.open(os.path.join(PERF_SAMPLE, "perf-script.txt.gz")) as packed, open(text, "wb") as file:
            shutil.copyfileobj(packed, file)
        cls.profile = make_report(os.path.join(PERF_SAMPLE, "dumps"), cls.path("profile.html"), "--perf-script", text)
        before = cls.path("before")
        shutil.copytree(cls.few_dumps, before)
        os.remove(os.path.join(before, "39"))
        replace_word(os.path.join(before, "5"), 4, 0xd503201f)
        replace_word(os.path.join(before, "21"), 6, 0xd503201f)
        after = cls.path("after")
        shutil.copytree(cls.few_dumps, after)
        os.remove(os.path.join(after, "38"))
        cls.comparison = make_report(after, cls.path("comparison.html"), "--against", before)
        cls.all_columns = make_report(os.path.join(PERF_SAMPLE, "dumps"), cls.path("all.html"), "--perf-script", text,
                                      "--against", os.path.join(PERF_SAMPLE, "dumps"))

        cls.shown = [cls.few, cls.profile, cls.comparison]
        if HAS_COST:
            slow = assemble_dumps(cls.path("slow"), GATHER % SLOW_ORDER)
            cls.fast = assemble_dumps(cls.path("fast"), GATHER % FAST_ORDER)
            cls.cycles = make_report(cls.fast, cls.path("cycles.html"), "--against", slow, "--cpu=cortex-a55,cortex-a72")
            cls.shown.append(cls.cycles)

    @classmethod
    def path(cls, name):
        return os.path.join(cls.directory, name)

    def open(self, page, fragment=""):
        self.driver.get("about:blank")  # so that another fragment is a new load
        self.driver.get_log("browser")
        self.driver.get("file://" + page + (fragment and "#" + fragment))
        self.addCleanup(lambda: self.assertEqual(self.driver.get_log("browser"), []))

    def run_script(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def value(self, expression, *arguments):
        return self.run_script("return " + expression, *arguments)

    def wait_for(self, condition, *arguments):
        return WebDriverWait(self.driver, PATIENCE, 0.05).until(
            lambda driver: driver.execute_script("return " + condition, *arguments), condition)

    def devtools(self, command, **parameters):
        return self.driver.execute_cdp_cmd(command, parameters)

    def size(self, width, height):
        self.devtools("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                      mobile=False)
        self.addCleanup(self.devtools, "Emulation.clearDeviceMetricsOverride")
        self.wait_for("innerWidth === arguments[0]", width)

    def press(self, *keys):
        webdriver.ActionChains(self.driver, duration=0).send_keys(*keys).perform()

    def click(self, selector):
        element = self.driver.find_element(By.CSS_SELECTOR, selector)
        self.run_script("arguments[0].scrollIntoView({block: 'center'})", element)
        element.click()

    def texts(self, selector):
        return self.value("[...document.querySelectorAll(arguments[0])].map((e) => e.textContent)", selector)

    def text(self, element_id):
        return self.value("document.getElementById(arguments[0]).textContent", element_id)

    def column(self, key):
        """The cells of a column, in their order."""
        return self.run_script("""
            const at = [...document.querySelectorAll('.kernels thead th')].findIndex(
                (head) => head.dataset.key === arguments[0]);
            return [...document.querySelectorAll('.kernels tbody tr[data-kernel]')].map(
                (row) => row.cells[at].textContent)""", key)

    def numbers(self, key):
        return [int(text.replace(",", "")) for text in self.column(key)]

    def articles(self):
        return self.value("[...document.querySelectorAll('article')].map((article) => article.ariaLabel)")

    def filter(self, text):
        self.run_script("const filter = document.getElementById(':filter'); filter.focus(); filter.value = ''")
        self.press(text if text else " ")

    def wait_until_in_view(self, element_id):
        self.wait_for("(() => { const r = document.getElementById(arguments[0])?.getBoundingClientRect();"
                      " return r && r.height > 0 && r.top >= 0 && r.top < innerHeight; })()", element_id)

    def wait_until_here(self, element_id):
        self.wait_for("document.querySelector('.here')?.id === arguments[0]", element_id)
        self.wait_until_in_view(element_id)

    def draw_all(self):
        self.run_script("dispatchEvent(new Event('beforeprint'))")

    # ---- What is there after loading

    def test_shows_every_kernel_in_strips_table_graph_and_listings(self):
        self.open(self.few)
        names = [f"kernel_{i}" for i in range(40)]
        self.assertEqual(self.driver.title, "Kernels of " + self.few_dumps)
        self.assertEqual(self.column("name"), names)
        self.assertEqual(self.articles(), names)
        blocks = self.value("[...document.querySelectorAll('.block:not(.data):not([data-again])')].map((b) => b.title)")
        self.assertEqual([title.split(":")[0] for title in blocks], names)
        model = self.value("JSON.parse(document.getElementById(':model').textContent)")
        called = {callee for kernel in model["kernels"] for callee in kernel["callees"]}
        linked = {k["name"] for i, k in enumerate(model["kernels"]) if k["callees"] or i in called}
        self.assertEqual(set(self.texts("#\\:graph a title")), linked)

    def test_places_blocks_to_scale(self):
        self.open(self.few)
        strips = self.run_script("""
            return [...document.querySelectorAll('.strip:not(.enlarged)')].map((strip) => {
                const whole = strip.getBoundingClientRect();
                return {width: whole.width, blocks: [...strip.querySelectorAll('a')].map((block) => {
                    const r = block.getBoundingClientRect();
                    return {title: block.title, at: r.left - whole.left, width: r.width};
                })};
            })""")
        scales = []
        for head, strip in zip(self.texts(".strips h3"), strips):
            base, length = int(head.split(",")[0], 16), int(re.search(r", ([\d,]+) bytes", head)[1].replace(",", ""))
            scales.append(strip["width"] / length)
            for block in strip["blocks"]:
                _, address, size = re.search(r"(code|constants) at (0x[0-9a-f]+), ([\d,]+) bytes",
                                             block["title"]).groups()
                self.assertAlmostEqual(block["at"], (int(address, 16) - base) * scales[-1], delta=0.6)
                self.assertAlmostEqual(block["width"], int(size.replace(",", "")) * scales[-1], delta=0.6)
        self.assertAlmostEqual(scales[0], scales[1], delta=scales[0] / 100)

    def test_enlarges_code_that_is_small_beside_its_constants(self):
        self.open(self.profile)
        small, large = self.run_script("""
            return ['.strip:not(.enlarged)', '.enlarged'].map((strip) =>
                [...document.querySelectorAll(`${strip} .block:not(.data)`)].map((block) => block.offsetWidth))""")
        self.assertEqual(len(small), 5)
        self.assertLess(max(small), 20)
        self.assertGreater(min(large), 40)
        self.assertEqual(self.texts(".enlarged .block"),
                         ["wfta_short_5", "wfta_short_7", "wfta_short_9", "wfta_short_16", "wfta_5040"])

    def test_block_too_narrow_for_its_name_shows_the_end_of_it(self):
        self.open(self.few)
        blocks = self.run_script("""
            return [...document.querySelectorAll('.block')].filter((block) => block.textContent).map((block) =>
                [block.title.split(':')[0], block.textContent, block.scrollWidth - block.clientWidth])""")
        for name, text, hidden in blocks:
            self.assertTrue(text == name or (text[0] == "…" and name.endswith(text[1:])), text)
            self.assertLessEqual(hidden, 1, text)
        self.assertTrue([text for _, text, _ in blocks if re.fullmatch(r"…\w*_\d+", text)], blocks)

    def test_shows_memory_of_kernels_without_a_dump_as_unknown(self):
        dumps = self.path("unknown")
        shutil.copytree(os.path.join(PERF_SAMPLE, "dumps"), dumps)
        [dump] = [name for name in os.listdir(dumps) if name.startswith("wfta_short_7")]
        os.remove(os.path.join(dumps, dump))
        self.open(make_report(dumps, self.path("unknown.html")))
        lines = self.texts(".card dt + dd")
        unknown = self.texts(".card dt")[lines.index("bytes unknown: of kernels without a dump")]
        self.assertEqual(len(self.texts(".strip:not(.enlarged) .unknown")), 2)  # its code and its constants
        self.assertEqual(len(self.texts(".enlarged .unknown")), 1)
        sizes = self.value("[...document.querySelectorAll('.strip:not(.enlarged) .unknown')].map((u) => parseInt(u.title))")
        self.assertEqual(sum(sizes), int(unknown))
        self.assertIn("dotted: unknown", self.texts("#\\:legend > span"))

    def test_draws_callers_above_callees(self):
        self.open(self.few)
        edges = self.run_script("""
            const top = (kernel) => document.querySelector(`#\\\\:graph a[data-kernel="${kernel}"] rect`).y.baseVal.value;
            return [...document.querySelectorAll('#\\\\:graph path[data-from]')].map(
                ({dataset}) => [top(dataset.from), top(dataset.to)])""")
        self.assertGreater(len(edges), 20)
        for caller, callee in edges:
            self.assertLess(caller, callee)

    def test_listing_has_labels_arrows_and_links(self):
        self.open(self.few, "kernel_7")
        self.wait_until_here("kernel_7")
        listing = self.run_script("""
            const article = document.getElementById('kernel_7');
            const cells = ['.offset', '.word', '.label', '.text'];
            return {
                rows: [...article.querySelectorAll('.line')].map((line) =>
                    cells.map((cell) => line.querySelector(cell).textContent)),
                heads: article.querySelectorAll('.arrows path.back.head').length,
                links: [...article.querySelectorAll('.text a')].map((a) => [a.textContent, a.getAttribute('href')]),
            }""")
        self.assertRegex("|".join(listing["rows"][0]), r"^\+00\|[0-9a-f]{8}\|\|adrp  x3, \.rodata")
        self.assertRegex("|".join(listing["rows"][-1]), r"^\+[0-9a-f]+\|d65f03c0\|\|ret$")
        self.assertEqual(listing["heads"], 1)
        label, target = listing["links"][0]
        self.assertEqual(target, "#kernel_7+0x" + label.removeprefix(".L"))
        self.assertEqual([row[2] for row in listing["rows"] if row[2]], [label + ":"])
        for name, target in listing["links"][1:]:
            self.assertEqual(target, "#" + name)

    def test_shows_constants_as_bytes_and_numbers(self):
        self.open(self.profile, "wfta_short_5")
        self.wait_until_here("wfta_short_5")
        self.click("#wfta_short_5 summary")
        self.wait_for("document.querySelectorAll('#wfta_short_5 .dump tbody tr').length === 8")
        rows = self.run_script("return [...document.querySelectorAll('#wfta_short_5 .dump tbody tr')].map("
                               "(row) => [...row.cells].map((cell) => cell.textContent))")
        self.assertEqual(rows[1], ["+08", "00 00 00 00 00 00 00 80", "-0", "0", "-0", "0", "-2147483648"])
        self.assertEqual(rows[2], ["+10", "00 00 00 00 00 00 f4 bf", "-1.25", "0", "-1.90625", "0", "-1074528256"])

    def test_leaves_out_what_there_is_no_choice_of_and_says_that_nothing_calls(self):
        self.open(make_report(make_dumps(self.path("one"), 1), self.path("one.html")))
        self.assertEqual(self.value("document.getElementById(':colour').offsetHeight"), 0)
        self.assertEqual(self.texts("#\\:places button"), [])
        self.assertEqual(self.text(":graph-of"), "No kernel calls another.")

    # ---- Order and filter

    def test_sorts_by_a_column_and_back_and_listings_follow(self):
        self.open(self.few)
        code = self.numbers("code")
        self.click("th[data-key=code] button")
        self.assertEqual(self.numbers("code"), sorted(code, reverse=True))
        self.assertEqual(self.articles(), self.column("name"))
        self.assertEqual(self.value("document.querySelector('th[aria-sort]').ariaSort"), "descending")
        self.click("th[data-key=code] button")
        self.assertEqual(self.numbers("code"), sorted(code))
        self.assertEqual(self.value("document.querySelector('th[aria-sort]').ariaSort"), "ascending")
        self.click("th[data-key=name] button")
        self.assertEqual(self.column("name"), [f"kernel_{i}" for i in range(40)])

    def test_begins_with_what_changed_or_is_hot(self):
        self.open(self.comparison)
        self.assertEqual(self.column("class")[:5], ["code", "code", "added", "removed", "same"])
        self.assertEqual(self.column("name")[:5], ["kernel_5", "kernel_21", "kernel_39", "kernel_38", "kernel_0"])
        self.click("th[data-key=address] button")
        self.assertEqual(self.column("name"), [f"kernel_{i}" for i in range(38)] + ["kernel_39", "kernel_38"])
        self.open(self.profile)
        self.assertEqual(self.column("name")[0], "wfta_5040")

    def test_filters_table_placement_graph_and_listings(self):
        self.open(self.few)
        code = dict(zip(self.column("name"), self.numbers("code")))
        self.press("/")
        self.assertEqual(self.value("document.activeElement.id"), ":filter")
        self.press("_1")
        fitting = [name for name in code if "_1" in name]
        self.assertEqual(self.column("name"), fitting)
        self.assertEqual(self.articles(), fitting)
        self.assertEqual(self.text(":shown"), f"{len(fitting)} of 40")
        clear = self.value("[...document.querySelectorAll('.block:not(.dimmed)')].map((b) => b.title.split(':')[0])")
        self.assertEqual(set(clear), set(fitting))
        nodes = set(self.texts("#\\:graph a:not(.dimmed) title"))
        self.assertTrue(nodes and nodes <= set(fitting), nodes)
        limit = code["kernel_12"]
        self.press(f" code >= {limit}")
        self.assertEqual(self.column("name"), [n for n in fitting if code[n] >= limit])
        self.press(" /nobody")
        self.assertEqual(self.column("name"), [])
        self.assertEqual(self.texts(".kernels tbody tr"), ["No kernel is like that."])
        self.press(Keys.ESCAPE)
        self.assertEqual(len(self.column("name")), 40)
        self.assertEqual(self.texts(".dimmed"), [])

    def test_filter_knows_obvious_names(self):
        self.open(self.profile)
        for text, expected in (("time>1", ["wfta_5040"]), ("share>1", ["wfta_5040"]), ("time>1%", ["wfta_5040"]),
                               ("constants>1,000", ["wfta_5040"]), ("name:5040", ["wfta_5040"]),
                               ("-short", ["wfta_5040"]), ('"wfta_5040"', ["wfta_5040"]), ("size > 1000000", []),
                               ("time>", 5), ("-", 5), ("Instr.>100", ["wfta_short_16"]), ("findings>0", []), ("findings=0", 5)):
            self.filter(text)
            self.assertEqual(self.text(":complaint"), "", text)
            names = self.column("name")
            self.assertEqual(len(names) if isinstance(expected, int) else names, expected, text)
        self.open(self.comparison)
        for text, count in (("class:code", 2), ("change=code", 2), ("class!=same", 4), ("-class:same", 4),
                            ("class:code _5", 1)):
            self.filter(text)
            self.assertEqual((len(self.column("name")), self.text(":complaint")), (count, ""), text)

    def test_filter_says_what_it_does_not_understand_and_shows_the_rest(self):
        self.open(self.comparison)
        for text, complaint, count in (
                ("tme>1", "“tme” is not a column; there are name, class, findings,", 40),
                ("time>1", "“time” is not a column; there are name, class, findings,", 40),
                ("_5 colour:red", "“colour” is not a column;", 1),
                ("class:cod3", "“cod3” is not a class; there are code, relocations,", 40),
                ("class=cod", "“cod” is not a class; there are code, relocations,", 40),
                ("class!=cod", "“cod” is not a class;", 40),
                (">5 _5", "“>5” does not start with a column; there are name,", 1),
                ("±>0", "“±” is not a column;", 40),
                ("code>%", "“%” is not a number,", 40),
                ("class>code", "“class” is a text: use “class:” or “class=”.", 40),
                ("code>many", "“many” is not a number, which “code” is compared with.", 40)):
            self.filter(text)
            self.assertTrue(self.text(":complaint").startswith(complaint), self.text(":complaint"))
            self.assertEqual(len(self.column("name")), count, text)
        self.filter(" ")
        self.assertEqual(self.text(":complaint"), "")

    # ---- The interface of kernels

    def test_columns_and_filter_know_the_interface(self):
        dumps = self.path("interface")
        subprocess.run([MAKE_DUMPS, dumps], input=INTERFACES, text=True, check=True)
        self.open(make_report(dumps, self.path("interface.html")))
        self.assertEqual(self.column("stack"), ["0", "0", "0", "48", "?"])
        self.assertEqual(self.column("general"), ["5", "2", "2", "7", "3"])
        self.assertEqual(self.column("vectors"), ["0", "6", "1", "1", "0"])
        names = {"r": "registers", "v": "vectors", "p": "predicated", "f": "framed", "u": "unknown"}
        for text, expected in (("stack>0", "f"), ("stack=48", "f"), ("stack<48", "rvp"), ("-stack>=0", "u"),
                               ("vectors>=6", "v"), ("vectors<6", "rpfu"), ("vector = 1", "pf"), ("gprs>4", "rf"),
                               ("predicates>0", "p"), ("predicates=0", "rvfu"), ("spills>0", "f"), ("spill=6", "f"),
                               ("needs:sve", "p"), ("needs:neon", "v"), ("needs:sv", ""), ("needs=0", "rfu"),
                               ("reads:x1", "rf"), ("reads:x", ""), ("reads=X2", "rf"), ("reads!=x1", "vpu"),
                               ("-reads:x1", "vpu"), ("reads:v1", "v"), ("read>5", "v"), ("writes:nzcv", "r"),
                               ("saves:x19", "f"), ("saves>0", "f"), ("saves>=4", "f"), ("saves=0", "rvpu"),
                               ("saves:x1", ""), ("writes>", "rvpfu")):
            self.filter(text)
            self.assertEqual((self.text(":complaint"), self.column("name")), ("", [names[name] for name in expected]), text)
        for text, complaint in (("reads>x1", "“x1” is not a number: use “reads:x1”."),
                                ("stack>much", "“much” is not a number, which “stack” is compared with."),
                                ("stak>0", "“stak” is not a column; there are name, findings, size, ")):
            self.filter(text)
            self.assertTrue(self.text(":complaint").startswith(complaint), self.text(":complaint"))
            self.assertEqual(len(self.column("name")), 5, text)
        self.filter(" ")
        self.click("th[data-key=stack] button")
        self.assertEqual(self.column("stack"), ["48", "0", "0", "0", "?"])
        self.draw_all()
        self.assertEqual(self.texts("#framed .facts")[1],
                         "reads x0-x2; saves x29, x30 at cfa-48, x19, x20 at cfa-32; stack 48 bytes;"
                         " spills 3 stores, 3 loads; calls x2; max live 7 general (+00), 1 vector (+14)")

    @unittest.skipUnless(HAS_COST, "LLVM has no machine-code analyser")
    def test_columns_and_filter_know_cycles(self):
        self.open(self.cycles)
        self.assertEqual(self.column("name"), ["gather", "calls", "short"])
        # The loop takes 9 and 4 cycles, and 12 and 4 in the order before.
        self.assertEqual(self.column("cortex-a55")[:2], ["10", "?"])
        self.assertEqual(self.column("delta-cortex-a55"), ["−3", "0", "0"])
        self.assertEqual(self.column("cortex-a72")[:2], ["5", "?"])
        self.assertEqual(self.column("delta-cortex-a72"), ["0", "0", "0"])
        self.assertIn("cortex-a72 (model of cortex-a57)",
                      self.value("document.querySelector('th[data-key=cortex-a72]').title"))
        self.assertRegex(self.text(":estimate"), "^Cycles of one call, with one iteration of each loop, on cortex-a55,"
                         r" cortex-a72 \(model of cortex-a57\); estimated by LLVM [0-9.]+'s scheduling models")
        # Heads take two lines, and no more.
        self.assertLess(self.value("Math.max(...[...document.querySelectorAll('.kernels thead button')].map("
                                   "(head) => head.offsetHeight))"), 60)
        short = self.column("cortex-a55")[2]
        self.click("th[data-key=cortex-a55] button")
        self.assertEqual(self.column("cortex-a55"), ["10", short, "?"])
        self.click("th[data-key=cortex-a55] button")
        self.assertEqual(self.column("cortex-a55"), [short, "10", "?"])
        for text, names, complaint in (
                ("cortex-a55>9", ["gather"], ""), ("cortex-a55=10", ["gather"], ""), ("-cortex-a72>=0", ["calls"], ""),
                ("delta-cortex-a55<0", ["gather"], ""),
                ("cortex-a55>x", ["short", "gather", "calls"],
                 "“x” is not a number, which “cortex-a55” is compared with."),
                ("cycles>9", ["short", "gather", "calls"],
                 "“cycles” has a column for each processor: use “cortex-a55” or “cortex-a72”."),
                ("delta-cycles<0", ["short", "gather", "calls"],
                 "“delta-cycles” has a column for each processor: use “delta-cortex-a55” or “delta-cortex-a72”.")):
            self.filter(text)
            self.assertEqual((self.column("name"), self.text(":complaint")), (names, complaint), text)
        self.open(make_report(self.fast, self.path("a55.html"), "--cpu=cortex-a55"))
        self.filter("cycles>9")
        self.assertEqual((self.column("name"), self.text(":complaint")), (["gather"], ""))
        self.filter("delta-cycles<0")
        self.assertIn("“delta-cycles” is not a column", self.text(":complaint"))
        self.open(self.few)
        self.assertEqual(self.text(":estimate") + self.text(":latencies"), "")
        self.filter("cycles>9")
        self.assertIn("“cycles” is not a column", self.text(":complaint"))

    @unittest.skipUnless(HAS_COST, "LLVM has no machine-code analyser")
    def test_listing_marks_the_critical_chain_and_says_what_limits_a_loop(self):
        self.open(self.cycles, "gather")
        self.wait_until_here("gather")
        latencies = """return [...document.querySelectorAll('#gather .line[id]')].map((line) =>
            [...line.querySelectorAll('.latency')].map((cell) => cell.textContent))"""
        rows = self.run_script(latencies)
        self.assertEqual([a55 for a55, _ in rows], ["3*", "3 ", "4*", "1*", "1 ", "1*"])
        self.assertEqual(self.texts("#gather .sides .latency"), ["a55 ", "a72 "])
        marked = self.run_script("""
            return [...document.querySelectorAll('#gather .critical')].map(({title, textContent}) => [title, textContent])
                .filter(([title]) => title.startsWith('cortex-a55'))""")
        self.assertEqual(marked[:3], [["cortex-a55: latency 3, on the critical chain", "3*"],
                                      ["cortex-a55: latency 4, on the critical chain; waits for w6 of +0x0", "4*"],
                                      ["cortex-a55: latency 1, on the critical chain; waits for q0 of +0x8", "1*"]])
        costs = [line.split("|") for line in self.run_script("""
            return [...document.querySelectorAll('#gather .costs tr')].map((row) =>
                [...row.cells].map((cell) => cell.textContent).join('|'))""")]
        self.assertEqual(costs[0], ["block", "instr.", "cycles on cortex-a55", "cycles on cortex-a72 (model of cortex-a57)"])
        self.assertEqual(costs[1][:3], ["loop +0x0", "5", "9, bound 3.5, dependencies"])
        self.assertEqual(self.texts("#calls .costs td.none"), ["not modelled: calls gather at +0x4"])
        self.click("#gather .costs a")
        self.wait_until_here("gather+0x0")

    @unittest.skipUnless(HAS_COST, "LLVM has no machine-code analyser")
    def test_latencies_stand_in_columns_at_every_width(self):
        self.open(self.cycles, "gather")
        self.wait_until_here("gather")
        for width in (1400, 800, 400):
            self.size(width, 900)
            edges = self.run_script("""
                return [0, 1].map((at) => [...new Set([...document.querySelectorAll('#gather .after .latency')]
                    .filter((cell, index) => index % 2 === at && cell.offsetWidth)
                    .map((cell) => Math.round(cell.getBoundingClientRect().right)))])""")
            self.assertEqual([len(right) for right in edges], [1, 1], width)
            self.assertRegex(self.value("document.querySelector('#gather .sides').innerText"), r"a55\s+a72\s*$")
            texts = self.run_script("""
                return new Set([...document.querySelectorAll('#gather .line:not(.sides) .text')].filter((text) =>
                    text.offsetWidth && (innerWidth > 800 ? text.closest('.after') : true)).map((text) => {
                        const range = document.createRange();
                        range.selectNodeContents(text);
                        return Math.round(range.getBoundingClientRect().left);
                    })).size""")
            self.assertEqual(texts, 1, width)

    def test_columns_fit_a_wide_screen_and_the_name_stays_on_a_narrow_one(self):
        for page in (self.few, self.comparison, self.all_columns):
            self.open(page)
            self.size(1400, 900)
            box = "document.getElementById(':table-box')"
            self.assertLessEqual(self.value(f"{box}.scrollWidth - {box}.clientWidth"), 0, page)
            self.size(400, 900)
            self.run_script(f"{box}.scrollLeft = 1e6")
            for left in self.value("[...document.querySelectorAll('.kernels th:first-child')].map((name) =>"
                                   f" name.getBoundingClientRect().left - {box}.getBoundingClientRect().left)"):
                self.assertAlmostEqual(left, 0, delta=1)

    # ---- Fragments and keyboard

    def test_fragment_of_an_instruction_shows_it(self):
        self.open(self.few, "kernel_30+0x18")
        self.wait_until_here("kernel_30+0x18")

    def test_fragment_of_what_the_filter_hides_shows_it(self):
        self.open(self.few)
        self.filter("_5")
        self.run_script("location.hash = 'kernel_30+0x18'")
        self.wait_until_here("kernel_30+0x18")
        self.assertEqual(self.value("document.getElementById(':filter').value"), "")

    def test_links_lead_to_the_kernel(self):
        self.open(self.few)
        for link in (".kernels a[href='#kernel_33']", "#\\:graph a[data-kernel='33']", ".block[data-kernel='33']"):
            self.run_script("location.hash = ''; scrollTo(0, 0)")
            self.run_script("document.querySelector(arguments[0]).dispatchEvent(new MouseEvent('click',"
                            " {bubbles: true, cancelable: true}))", link)
            self.wait_until_here("kernel_33")
            self.assertEqual(self.value("location.hash"), "#kernel_33")

    def test_head_of_the_kernel_stays_while_its_listing_scrolls(self):
        self.open(self.profile, "wfta_5040+0x88")
        self.wait_until_here("wfta_5040+0x88")
        self.run_script("scrollBy(0, document.getElementById('wfta_5040+0x88').getBoundingClientRect().top - 200)")
        self.wait_for("""(() => {
            const bar = document.getElementById(':bar').getBoundingClientRect();
            const head = document.querySelector('#wfta_5040 header').getBoundingClientRect();
            const article = document.getElementById('wfta_5040').getBoundingClientRect();
            return bar.top === 0 && Math.abs(head.top - bar.bottom) < 1 && article.top < -100;
        })()""")
        self.assertEqual(self.value("document.elementFromPoint(100, document.getElementById(':bar').offsetHeight + 10)"
                                    ".closest('header').querySelector('h3').textContent"), "wfta_5040")

    def test_tab_stops_once_in_each_group_and_focus_is_visible(self):
        for page in (self.few, self.comparison):
            self.open(page)
            stops = []
            while True:
                self.press(Keys.TAB)
                inside, where, outline, stroke = self.run_script("""
                    const at = document.activeElement;
                    const style = getComputedStyle(at);
                    return [at !== document.body, at.outerHTML.slice(0, 80),
                        `${style.outlineStyle} ${style.outlineWidth}`, at.querySelector('rect')
                            ? getComputedStyle(at.querySelector('rect')).strokeWidth : '']""")
                if not inside or where in stops:
                    break
                stops.append(where)
                self.assertTrue(outline == "solid 2px" or stroke == "3px", where)
                self.assertLess(len(stops), 20, stops)
            self.assertGreater(len(stops), 7, stops)

    def test_arrow_keys_go_from_item_to_item(self):
        self.open(self.few)
        self.run_script("document.querySelector('.block:not([data-again])').focus()")
        self.press(Keys.ARROW_RIGHT, Keys.ARROW_RIGHT)
        self.assertRegex(self.text(":under"), r"^kernel_2: code at 0x7f0000000[0-9a-f]+, \d+ bytes$")
        self.press(Keys.ENTER)
        self.wait_until_here("kernel_2")
        self.run_script("document.querySelector('.kernels tbody a').focus()")
        self.press(Keys.ARROW_DOWN, Keys.ARROW_DOWN, Keys.ARROW_UP)
        self.assertEqual(self.value("document.activeElement.textContent"), "kernel_1")
        self.press(Keys.END)
        self.assertEqual(self.value("document.activeElement.textContent"), "kernel_39")
        for group in (".kernels tbody", "#\\:strips", "#\\:graph", ".kernels thead", "#\\:articles"):
            self.assertEqual(self.value("document.querySelectorAll(`${arguments[0]} [tabindex='0']`).length", group), 1,
                             group)

    def test_keys_lead_from_change_to_change(self):
        self.open(self.comparison)
        places = []
        for _ in range(4):
            self.press("c")
            self.wait_for("location.hash && location.hash !== arguments[0]", "#" + places[-1] if places else "")
            places.append(self.value("location.hash.slice(1)"))
            self.wait_until_here(places[-1])
        self.assertRegex(places[0], r"^kernel_5\+0x[0-9a-f]+$")
        self.assertRegex(places[1], r"^kernel_21\+0x[0-9a-f]+$")
        self.assertEqual(places[2:], ["kernel_39", "kernel_38"])
        self.assertIn("differs", self.value("document.getElementById(arguments[0]).className", places[0]))
        self.assertEqual(self.value("document.activeElement.getAttribute('href')"), "#kernel_38")
        self.press("C")
        self.wait_until_here("kernel_39")
        self.press("c", "c")
        self.wait_until_here(places[0])  # from the last to the first
        self.click("#\\:places button[aria-label='Next change']")
        self.wait_until_here(places[1])

    def test_findings_stand_at_their_instructions_and_keys_lead_to_them(self):
        self.open(self.few)
        model = self.value("JSON.parse(document.getElementById(':model').textContent)")
        found = sorted({(finding["kernel"], finding["offset"]) for finding in model["findings"]})
        self.assertGreater(len(found), 1)
        for kernel, offset in found[:3]:
            self.press("f")
            place = f"kernel_{kernel}+{offset:#x}"
            self.wait_until_here(place)
            [finding] = [one for one in model["findings"] if (one["kernel"], one["offset"]) == (kernel, offset)]
            mark = self.run_script("const mark = document.getElementById(arguments[0]).querySelector('.mark');"
                                   " return [mark.className, mark.textContent, mark.title]", place)
            self.assertEqual(mark, ["mark " + finding["severity"], "✖", finding["message"]])
            self.assertIn(finding["message"], self.texts(f"#kernel_{kernel} .findings li")[0])
        self.filter("errors>0")
        self.assertEqual(self.column("name"), [f"kernel_{kernel}" for kernel in sorted({k for k, _ in found})])

    def test_keys_lead_from_hot_spot_to_hot_spot(self):
        self.open(self.profile)
        for offset in ("0x54", "0x88", "0xbc", "0xec"):
            self.press("h")
            self.wait_until_here("wfta_5040+" + offset)

    def test_help_shows_keys_and_columns(self):
        self.open(self.comparison)
        self.press("?")
        self.wait_for("document.getElementById(':help').open")
        keys = self.texts("#\\:keys dt")
        self.assertEqual((keys[0], keys[-1]), ("c C", "?"))
        self.assertIn("/", keys)
        self.assertIn("class:code", self.texts("#\\:examples dt"))
        self.assertTrue(self.text(":columns").startswith("name, class, findings, size, code, data, "))
        self.press(Keys.ESCAPE)
        self.wait_for("!document.getElementById(':help').open")

    def test_zooms_the_strips(self):
        self.open(self.few)
        width = "document.querySelector('.strip').getBoundingClientRect().width"
        before = self.value(width)
        self.click("[data-zoom='2']")
        self.assertAlmostEqual(self.value(width), 2 * before, delta=1)
        self.click("[data-zoom='0']")
        self.assertAlmostEqual(self.value(width), before, delta=1)

    # ---- Comparison and profile

    def test_comparison_shows_both_sides_and_folds_what_is_equal(self):
        self.open(self.comparison, "kernel_5")
        self.wait_until_here("kernel_5")
        shape = """[...document.querySelectorAll('#kernel_5 .rows > :is(.line, .fold)')].slice(1).map((line) =>
            line.dataset.fold !== undefined ? 'fold' : line.classList.contains('differs') ? 'differs' : 'equal')"""
        self.assertEqual(self.value(shape), ["fold"] + 3 * ["equal"] + ["differs"] + 3 * ["equal"] + ["equal"])
        line = self.run_script("""
            const line = document.querySelector('#kernel_5 .differs');
            return [line.id, line.querySelector('.before').id, line.querySelector('.before .text').textContent]""")
        offset = line[0].removeprefix("kernel_5")
        self.assertEqual(line[1:], ["kernel_5:old" + offset, "nop"])
        self.assertEqual(self.value("document.querySelectorAll('#kernel_6 .before').length"), 0)
        folded = int(re.search(r"⋯ (\d+) equal rows", self.texts("#kernel_5 .fold")[0])[1])
        self.run_script("document.querySelector('#kernel_5 .fold').focus()")
        self.press(Keys.ENTER)
        self.wait_for("!document.querySelector('#kernel_5 .fold')")
        self.assertEqual(self.value(shape), (folded + 3) * ["equal"] + ["differs"] + 4 * ["equal"])
        self.assertEqual(self.value("document.activeElement.getAttribute('href')"), "#kernel_5+0x0")
        self.run_script("location.hash = arguments[0]", "kernel_5:old" + offset)
        self.wait_until_here("kernel_5:old" + offset)

    def test_fragment_of_a_folded_row_unfolds_it(self):
        self.open(self.comparison, "kernel_5+0x4")
        self.wait_until_here("kernel_5+0x4")
        self.run_script("location.hash = 'kernel_6+0x8'")  # all rows of this kernel are equal
        self.wait_until_here("kernel_6+0x8")

    def test_changed_constants_are_shown_beside_what_they_were(self):
        after = self.path("constants")
        shutil.copytree(os.path.join(PERF_SAMPLE, "dumps"), after)
        [dump] = [name for name in os.listdir(after) if name.startswith("wfta_short_5")]
        with open(os.path.join(after, dump), "r+b") as file:
            at = file.read().index(bytes.fromhex("000000000000f4bf"))
            file.seek(at + 6)
            file.write(b"\xf8")
        self.open(make_report(after, self.path("constants.html"), "--against", os.path.join(PERF_SAMPLE, "dumps")),
                  "wfta_short_5")
        self.wait_for("document.querySelector('#wfta_short_5 .dump .differs')")
        self.assertEqual(self.run_script(
            "return [...document.querySelector('#wfta_short_5 .dump .differs').cells].map((cell) => cell.textContent)"),
            ["+10", "00 00 00 00 00 00 f8 bf", "-1.5", "0", "-1.9375", "0", "-1074266112",
             "00 00 00 00 00 00 f4 bf", "-1.25"])
        # The load that gets another value than before stands out, though its instruction is the same.
        changed = self.run_script("return [...document.querySelectorAll('#wfta_short_5 .line:is(.differs, .values)')].map("
                                  "(line) => [...line.querySelectorAll('.comment')].map((one) => one.textContent.trim()))")
        self.assertEqual(changed, [["; .rodata+0x10  -1.25", "; .rodata+0x10  -1.5"]])
        self.press("c")
        self.wait_for("/^#wfta_short_5\\+0x/.test(location.hash)")
        self.press("c")
        self.wait_until_here("wfta_short_5:constants")

    def test_harmless_changes_are_quieter_than_code(self):
        self.open(self.comparison)
        saturation = self.run_script("""
            const probe = document.body.appendChild(document.createElement('span'));
            return Object.fromEntries(JSON.parse(document.getElementById(':model').textContent).classes.map(({name, tone}) => {
                probe.className = `chip tone-${tone}`;
                const parts = getComputedStyle(probe).backgroundColor.match(/\\d+/g).map(Number);
                return [name, Math.max(...parts) - Math.min(...parts)];
            }))""")
        for name in ("constants", "layout", "registers", "order", "same"):
            self.assertLess(2 * saturation[name], saturation["code"], name)

    def test_profile_heats_kernels_and_instructions(self):
        self.open(self.profile, "wfta_5040")
        self.wait_until_here("wfta_5040")
        # 23,238 of 24,180 samples, all of one period, are in the kernel, and 6,402 of these at +0x88.
        self.assertEqual(self.column("time"), ["96.1", "<0.1", "<0.1", "<0.1", "<0.1"])
        self.assertIn("96.2 % in kernels", self.texts(".card strong"))
        self.assertEqual(self.value("document.documentElement.dataset.colour"), "heat")
        self.assertEqual(self.run_script("""
            const share = document.getElementById('wfta_5040+0x88').querySelector('.share');
            return [share.textContent, share.className, share.style.getPropertyValue('--bar')]"""),
                         ["27.5", "share heat-row-7", "1"])
        self.assertEqual(self.texts("[id='wfta_5040+0x84'] .comment"), ["; <0.1 % of all in wfta_short_7"])
        self.click("input[value=size]")
        self.assertEqual(self.value("document.documentElement.dataset.colour"), "size")

    def test_kernel_without_a_hot_spot_stays_pale(self):
        dumps = self.path("straight")
        shutil.copytree(os.path.join(PERF_SAMPLE, "dumps"), dumps)
        listed = json.loads(subprocess.run([VORNA_KERNELS, "show", dumps, "wfta_short_5", "--format=json"],
                                           capture_output=True, check=True).stdout)["kernels"][0]
        begin, rows = int(listed["address"], 16), len(listed["rows"])
        mapping = begin & ~0xfff
        with open(self.path("counts"), "w", encoding="ascii") as file:
            file.write(f"7 0.000000: PERF_RECORD_MMAP2 7/7: [{mapping:#x}(0x100000) @ {mapping:#x} 00:00 0 0]: rwxp //anon\n")
            for row in range(rows):
                file.write(f"7 1.000000: 3 instructions: {begin + 4 * row:x}\n")
        self.open(make_report(dumps, self.path("straight.html"), "--perf-script", self.path("counts")), "wfta_short_5")
        self.wait_until_here("wfta_short_5")
        steps = self.value("[...document.querySelectorAll('#wfta_short_5 .share')].map((s) => [s.className,"
                           " Number(s.style.getPropertyValue('--bar'))])")
        self.assertEqual(steps, rows * [["share heat-row-3", 0.25]])

    # ---- Names

    def test_hostile_names_stay_text(self):
        dumps = make_dumps(self.path("hostile"), 8, [name.encode() for name in HOSTILE_NAMES] + [INVALID_UTF8])
        page = make_report(dumps, self.path("hostile.html"), "--against", make_dumps(self.path("harmless"), 8))
        shown = [name or "(no name)" for name in HOSTILE_NAMES] + ["bad\\xff\\xfename"]
        self.open(page)
        self.click("th[data-key=address] button")
        self.assertEqual(self.column("name")[-len(shown):], shown)
        self.draw_all()
        self.assertEqual(self.texts("article h3")[-len(shown):], shown)
        titles = self.texts("#\\:graph a title")
        for name in shown:
            self.assertTrue([title for title in titles if title.startswith(name)], name)
        self.assertEqual(self.value("document.querySelectorAll('img').length"), 0)
        for width in (1280, 400):
            self.size(width, 900)
            self.assertLessEqual(self.value("document.documentElement.scrollWidth"), width)
        ids = self.value("[...document.querySelectorAll('[id]')].map((element) => element.id)")
        self.assertEqual(len(ids), len(set(ids)))
        for kernel in self.value("JSON.parse(document.getElementById(':model').textContent).kernels"):
            self.run_script("location.hash = arguments[0]", kernel["id"])
            self.wait_until_here(kernel["id"])
            self.assertEqual(self.texts("article.here h3"), [kernel["name"]])
            self.run_script("location.hash = arguments[0]", kernel["id"] + "+0x4")
            self.wait_until_here(kernel["id"] + "+0x4")

    def test_filter_finds_names_that_look_like_conditions(self):
        dumps = make_dumps(self.path("odd"), 2, ["ns::kernel<int>", "size>5", "two words"])
        self.open(make_report(dumps, self.path("odd.html")))
        for text, name in (("ns::kernel", "ns::kernel<int>"), ("ns::", "ns::kernel<int>"), ("size>5", "size>5"),
                           ('"two words"', "two words")):
            self.filter(text)
            self.assertEqual((self.column("name"), self.text(":complaint")), ([name], ""), text)

    def test_policy_lets_nothing_else_run(self):
        self.driver.get("file://" + self.few)
        self.run_script("""
            document.addEventListener('securitypolicyviolation', () => { window.refused = (window.refused ?? 0) + 1; });
            document.body.insertAdjacentHTML('beforeend', '<img src="http://127.0.0.1/x" onerror="window.ran = 1">');
            const script = document.createElement('script');
            script.textContent = 'window.ran = 2';
            document.body.append(script);""")
        self.wait_for("window.refused >= 2")
        self.assertIsNone(self.value("window.ran"))
        self.driver.get_log("browser")

    def test_page_asks_for_nothing(self):
        self.open(self.comparison)
        self.draw_all()
        self.assertEqual(self.value("performance.getEntriesByType('resource').map((e) => e.name)"), [])

    # ---- Narrow, without JavaScript, on paper, in the dark

    def test_after_stands_below_before_where_there_is_no_room(self):
        self.open(self.comparison, "kernel_5")
        self.wait_until_here("kernel_5")
        places = """(() => {
            const [before, after] = ['.before', '.after'].map((side) =>
                document.querySelector(`#kernel_5 .differs ${side}`).getBoundingClientRect());
            return [after.top >= before.bottom, after.left >= before.right];
        })()"""
        self.size(1400, 900)
        self.assertEqual(self.value(places), [False, True])
        self.size(700, 900)
        self.assertEqual(self.value(places), [True, False])
        equal = "document.querySelector('#kernel_5 .line:not(.differs):not(.sides) .before').offsetHeight"
        self.assertEqual(self.value(equal), 0)

    def test_nothing_is_wider_than_the_screen(self):
        for page in self.shown:
            self.open(page)
            self.draw_all()
            for width in (1400, 800, 400):
                self.size(width, 900)
                self.assertLessEqual(self.value("document.documentElement.scrollWidth"), width, page)
                # Except for what scrolls by itself, nothing reaches beyond the right edge.
                beyond = self.run_script("""
                    return [...document.querySelectorAll('body *')].filter((element) =>
                        !element.closest('.wide, .strips, .listing, .constants, dialog') &&
                        element.getBoundingClientRect().right > innerWidth + 1).map((e) => e.outerHTML.slice(0, 80))""")
                self.assertEqual(beyond, [])

    def test_chips_stand_on_the_line_of_their_text(self):
        self.open(self.comparison)
        for chip, text in self.run_script("""
                return [...document.querySelectorAll('.card dd')].filter((dd) => dd.querySelector('a')).map((dd) =>
                    ['.chip', 'a'].map((part) => {
                        const r = dd.querySelector(part).getBoundingClientRect();
                        return (r.top + r.bottom) / 2;
                    }))"""):
            self.assertAlmostEqual(chip, text, delta=2)

    def test_says_in_a_sentence_that_it_needs_javascript(self):
        self.devtools("Emulation.setScriptExecutionDisabled", value=True)
        self.addCleanup(self.devtools, "Emulation.setScriptExecutionDisabled", value=False)
        self.open(self.few)
        self.assertEqual(self.driver.find_element(By.TAG_NAME, "body").text,
                         "Please allow JavaScript for this page: a script in it draws everything, and nothing is "
                         "loaded from elsewhere.")

    def test_paper_has_every_listing_and_no_buttons(self):
        self.open(self.few)
        self.draw_all()
        self.devtools("Emulation.setEmulatedMedia", media="print")
        self.addCleanup(self.devtools, "Emulation.setEmulatedMedia", media="")
        self.assertEqual(self.value("document.getElementById(':bar').offsetHeight"), 0)
        self.assertEqual(self.value("[...document.querySelectorAll('.rows')].filter((r) => r.offsetHeight).length"), 40)

    def test_text_has_contrast_in_light_and_dark(self):
        for scheme in ("light", "dark"):
            self.devtools("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
            self.addCleanup(self.devtools, "Emulation.setEmulatedMedia", features=[])
            for page in self.shown:
                self.open(page)
                self.draw_all()
                self.filter("nonsense>1 5")
                for kind in self.value("[...document.querySelectorAll('#\\\\:colour input')].map((i) => i.value)"):
                    self.run_script("document.querySelector(`input[value=${arguments[0]}]`).click()", kind)
                    seen, bad = self.run_script(CONTRAST)
                    self.assertGreater(seen, 50)
                    self.assertEqual(bad, [], f"{scheme}, {kind}, {page}")
                self.press(Keys.ESCAPE)

    def test_every_tone_and_step_can_be_read(self):
        for scheme in ("light", "dark"):
            self.devtools("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
            self.addCleanup(self.devtools, "Emulation.setEmulatedMedia", features=[])
            self.open(self.comparison)
            self.run_script("""
                const strip = document.querySelector('.strip');
                const tones = JSON.parse(document.getElementById(':model').textContent).classes.map(({tone}) => `tone-${tone}`);
                const steps = [...Array(8).keys()].flatMap((step) => [`size-${step}`, `heat-${step}`]);
                for (const name of [...tones, ...steps]) {
                    const kind = name.startsWith('tone') ? 'change' : name.split('-')[0];
                    const box = document.createElement('div');
                    box.dataset.colour = kind;
                    const block = document.createElement('a');
                    block.className = `block ${name}`;
                    block.textContent = name;
                    box.append(block);
                    document.querySelector('main').prepend(box);
                }
                document.documentElement.dataset.colour = '';""")
            seen, bad = self.run_script(CONTRAST)
            self.assertGreater(seen, 25)
            self.assertEqual([one for one in bad if "class=\"block" in one[1]], [], scheme)

    def test_nothing_moves(self):
        self.open(self.comparison)
        self.draw_all()
        moving = self.run_script("""
            return [...document.querySelectorAll('*')].filter((element) => {
                const style = getComputedStyle(element);
                return style.transitionDuration !== '0s' || style.animationName !== 'none' || style.scrollBehavior === 'smooth';
            }).length""")
        self.assertEqual(moving, 0)

    # ---- Large sets

    def test_two_thousand_kernels(self):
        dumps = make_dumps(self.path("many"), 2000)
        page = make_report(dumps, self.path("many.html"))
        self.assertLess(os.path.getsize(page), 6 << 20)
        self.devtools("Performance.enable", timeDomain="threadTicks")
        self.addCleanup(self.devtools, "Performance.disable")
        self.open(page)
        metrics = {m["name"]: m["value"] for m in self.devtools("Performance.getMetrics")["metrics"]}
        print(f"2,000 kernels, {os.path.getsize(page) >> 20} MiB: the page's thread took {metrics['TaskDuration']:.1f} s"
              " to open it", file=sys.stderr)
        waiting = "document.querySelectorAll('article.waiting').length"
        self.assertGreater(self.value(waiting), 1900)
        self.assertEqual(len(self.column("name")), 200)
        self.run_script("location.hash = 'kernel_1700+0x20'")
        self.wait_until_here("kernel_1700+0x20")
        self.assertGreater(self.value(waiting), 1800)
        self.click("th[data-key=code] button")
        code = self.numbers("code")
        self.assertEqual(code, sorted(code, reverse=True))
        self.run_script("document.getElementById(':table-box').scrollTop = 1e6")
        self.wait_for("document.querySelectorAll('.kernels tbody tr').length > 200")
        self.filter("_199")
        self.assertEqual(len(self.column("name")), 11)
        self.assertEqual(len(self.articles()), 11)

    # ---- The file

    def test_same_input_makes_the_same_bytes(self):
        again = make_report(self.few_dumps, self.path("again.html"))
        with open(self.few, "rb") as first, open(again, "rb") as second:
            self.assertEqual(first.read(), second.read())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[5:], verbosity=2)
