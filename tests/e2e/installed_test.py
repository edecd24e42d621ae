"""What an installed tree gives those who build on it: each example is built and run.

    installed_test.py CMAKE BUILD BITS
"""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

from mailserver import Server

CMAKE, BUILD, BITS = sys.argv[1:4]
# CMake asks the compiler for its word size without -Werror and the word behind it.
CFLAGS = f"-m{BITS} -std=c11 -Wall -Wextra -pedantic -Werror"
SOURCES = os.path.abspath(os.path.join(os.path.dirname(__file__), "../.."))
# Runs a command where the sources and what was built of them are not to be seen.
HIDDEN = ["unshare", "--mount", *([] if os.geteuid() == 0 else ["--map-root-user"]), "sh", "-ec",
          'mount -t tmpfs none "$0"; exec "$@"', SOURCES]


def run(*command, **options):
    result = subprocess.run(command, capture_output=True, text=True, timeout=120, check=False, **options)
    assert result.returncode == 0, (command, result.stdout, result.stderr)
    return result.stdout


def alone(*command, **options):
    return run(*(HIDDEN if Installed.can_hide else []), *command, **options)


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="a b")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.prefix = os.path.join(cls.folder, "usr")
        run(CMAKE, "--install", BUILD, "--prefix", cls.prefix)
        here = subprocess.run([*HIDDEN, "test", "-d", cls.folder], capture_output=True, check=False)
        cls.can_hide = here.returncode == 0  # not where mounting is not allowed
        [pkgconfig] = [path for path, _, files in os.walk(cls.prefix) if "quorel.pc" in files]
        cls.libraries = os.path.dirname(pkgconfig)
        cls.programs = os.path.join(cls.prefix, "bin")
        cls.examples = os.path.join(cls.folder, "examples")
        shutil.copytree(os.path.join(cls.prefix, "share/doc/libquorel-dev/examples"), cls.examples)
        cls.environment = {**os.environ, "LD_LIBRARY_PATH": cls.libraries, "PKG_CONFIG_PATH": pkgconfig,
                           "CFLAGS": CFLAGS, "CXXFLAGS": f"-m{BITS} -Wall -Werror"}
        cls.environment.pop("QUOREL_LIBRARY", None)
        # CMake looks for packages of the compiler's own word size only.
        package = "-Dquorel_DIR=" + os.path.join(cls.libraries, "cmake/quorel")
        cls.found = package if BITS == "32" else "-DCMAKE_PREFIX_PATH=" + cls.prefix
        cls.build(cls.examples, "built")

    @classmethod
    def build(cls, sources, built):
        alone(CMAKE, "-G", "Ninja", "-S", sources, "-B", built, cls.found, cwd=cls.folder, env=cls.environment)
        alone(CMAKE, "--build", built, cwd=cls.folder)

    def example(self, name, *arguments, **options):
        return alone(os.path.join(self.folder, "built", name), *arguments, cwd=self.examples,
                   env=self.environment, **options)

    def sql(self, *arguments):
        return alone(os.path.join(self.programs, "quorelsql"), *arguments, cwd=self.examples,
                   env=self.environment)

    def server(self):
        server = Server()
        self.addCleanup(server.close)
        return server

    def test_host_reads_a_file_and_sends_it(self):
        text = ("x" * 70 + "\n" + "y" * 70 + "\r\n") * 750
        with open(os.path.join(self.examples, "text"), "w", encoding="ascii", newline="") as file:
            file.write(text)
        self.assertEqual(text.replace("\r", ""), self.example("host", "text"))
        server = self.server()
        self.example("host", "text", "127.0.0.1", str(server.port), "ann@a.test", "bob@b.test")
        [(sender, recipients, message)] = server.messages
        self.assertEqual(("ann@a.test", ["bob@b.test"]), (sender, recipients))
        self.assertIn(text.replace("\r", "").replace("\n", "\r\n").encode(), message)

    def test_examples_fail_where_nothing_was_done(self):
        for words, redirection, fault in (
                ("host README.md", ">/dev/full", "No space left"),
                ("host README.md 127.0.0.1 smtp ann@a.test bob@b.test", "", "smtp is no port"),
                ("owner ../built/libsum.so SUM", ">/dev/full </dev/null", "No space left"),
                ("owner ../built/libsum.so SUM", "<.", "Is a directory")):
            with self.assertRaisesRegex(AssertionError, fault):
                alone("sh", "-c", f"../built/{words} {redirection}", cwd=self.examples, env=self.environment)

    def test_provider_hashes_for_its_owner(self):
        self.assertEqual("26\n", self.example("owner", "../built/libsum.so", "sum", input="abc"))
        with self.assertRaisesRegex(AssertionError, "error 22"):
            self.example("owner", "../built/libsum.so", "md5")

    def test_scripts_run_from_any_folder(self):
        self.assertIn("apples       12", self.sql("files.sql"))
        server = self.server()
        self.sql("mail.db", "-c", "CREATE TABLE account(host, port, sender, recipient)", "-c",
                 f"INSERT INTO account VALUES('127.0.0.1', {server.port}, 'ann@a.test', 'bob@b.test')")
        self.sql("mail.db", "mail.sql")
        self.assertEqual([("ann@a.test", ["bob@b.test"])], [message[:2] for message in server.messages])

    def test_leaves_out_the_provider_that_protects_nothing(self):
        self.assertIn("libnxrsa12_r.so", os.listdir(self.libraries))
        self.assertNotIn("libqxcistub_r.so", [name for _, _, names in os.walk(self.prefix) for name in names])

    def test_pkg_config_has_what_a_linked_program_needs(self):
        with open(os.path.join(self.folder, "linked.c"), "w", encoding="ascii") as file:
            file.write('#include "extdll/procedures.h"\n'
                       "int main(void) { xp_stopmail(0, 0); return extfn_use_new_api() != EXTFN_API_VERSION; }\n")
        alone("sh", "-ec", f'eval "cc {CFLAGS} linked.c $(pkg-config --cflags --libs quorel)" -o linked; ./linked',
            cwd=self.folder, env=self.environment)

    def test_the_kit_brings_its_version_of_the_language(self):
        provider = os.path.join(self.folder, "provider")
        os.mkdir(provider)
        for name, text in (("sum.cpp", '#include "kovcert/qxci/kit/providerkit.h"\n'),
                           ("CMakeLists.txt", "cmake_minimum_required(VERSION 3.25)\nproject(sum LANGUAGES CXX)\n"
                            "find_package(quorel REQUIRED)\nadd_library(sum MODULE sum.cpp)\n"
                            "target_link_libraries(sum PRIVATE quorel::kit)\n")):
            with open(os.path.join(provider, name), "w", encoding="ascii") as file:
                file.write(text)
        self.build(provider, "made")

    def test_texts_are_compiled_by_the_installed_compiler(self):
        texts = os.path.join(self.libraries, "nxlgja12_sjis.res")
        compiler = os.path.join(self.programs, "qxres")
        with open(os.path.join(self.folder, "texts"), "w", encoding="utf-8") as file:
            file.write(alone(compiler, "--list", texts))
        alone(compiler, "texts", "-o", "made.res", cwd=self.folder)
        with open(texts, "rb") as shipped, open(os.path.join(self.folder, "made.res"), "rb") as made:
            self.assertEqual(shipped.read(), made.read())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
