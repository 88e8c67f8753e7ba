"""The site of the documents, by Sphinx: make docs."""

import re
import subprocess
import sys
from pathlib import Path

HERE = Path(__file__).parent
ROOT = HERE.parent

project = "Kestrum"
author = "The Kestrum developers"
version = release = re.search(r"VERSION ([0-9.]+)", (ROOT / "CMakeLists.txt").read_text())[1]
extensions = ["myst_parser", "sphinx.ext.autodoc", "sphinx.ext.autosummary", "sphinx.ext.napoleon", "sphinx.ext.viewcode"]
exclude_patterns = ["Doxyfile"]
templates_path = []
html_theme = "furo"
html_title = f"Kestrum {release}"
html_show_copyright = False
html_copy_source = False
myst_heading_anchors = 3
myst_enable_extensions = ["colon_fence", "dollarmath"]
napoleon_google_docstring = False
autodoc_typehints = "none"
autodoc_member_order = "bysource"
autosummary_generate = True


def make_gallery(_app):
    """Runs the examples, and writes a page for each with its picture."""
    gallery = HERE / "gallery"
    gallery.mkdir(exist_ok=True)
    names = ("map", "model", "uncertainty", "categories", "drift_and_blocks", "ore_body", "images", "facies", "shapes")
    for name in names:
        program = ROOT / "examples" / f"{name}.py"
        done = subprocess.run([sys.executable, program], check=True, capture_output=True, text=True)
        text = program.read_text()
        title = re.match(r'"""(.*?)\.?"""', text, re.S)[1]
        (gallery / f"{name}.png").write_bytes((ROOT / f"examples/output/{name}.png").read_bytes())
        printed = f"It prints:\n\n```text\n{done.stdout}```\n" if done.stdout else ""
        (gallery / f"{name}.md").write_text(f"# {title}\n\n![{title}]({name}.png)\n\n```python\n{text}```\n\n{printed}")
    rows = "\n".join(f"[![{name}]({name}.png)]({name}.md)\n" for name in names)
    toctree = "\n".join(names)
    (gallery / "index.md").write_text("# Gallery\n\nEach picture is made by the program behind it, in under 40 lines.\n\n"
                                      f"{rows}\n```{{toctree}}\n:hidden:\n{toctree}\n```\n")


def setup(app):
    app.connect("builder-inited", make_gallery)
