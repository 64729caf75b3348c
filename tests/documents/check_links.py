"""check_links.py FOLDER: each link of the HTML pages in a folder leads to a file that is there, and to
an anchor that the file has. Links to other sites are not followed."""

import html.parser
import pathlib
import sys
import urllib.parse


# The attributes by which an element leads somewhere; those of drawings included.
LINKS = {
    "a": ("href", "xlink:href"),
    "area": ("href",),
    "embed": ("src",),
    "iframe": ("src",),
    "img": ("src",),
    "link": ("href",),
    "object": ("data",),
    "script": ("src",),
}


class Page(html.parser.HTMLParser):
    """What a page links to, and the anchors that it has."""

    def __init__(self, path):
        super().__init__()
        self.links = []
        self.anchors = set()
        self.feed(path.read_text(encoding="utf-8", errors="replace"))

    def handle_starttag(self, tag, attrs):
        values = dict(attrs)
        self.anchors.update(filter(None, (values.get("id"), values.get("name"))))
        for attribute in LINKS.get(tag, ()):
            if values.get(attribute):
                self.links.append((self.getpos()[0], values[attribute]))


def dead_links(folder):
    pages = {
        path: Page(path) for path in sorted(folder.rglob("*")) if path.suffix in (".html", ".svg")
    }
    for path, page in pages.items():
        for line, link in page.links:
            parts = urllib.parse.urlsplit(link)
            if parts.scheme or parts.netloc:
                continue
            target = path
            if parts.path:
                target = (path.parent / urllib.parse.unquote(parts.path)).resolve()
            anchor = urllib.parse.unquote(parts.fragment)
            if not target.exists():
                yield "%s:%d: %s leads to no file" % (path, line, link)
            elif anchor and target in pages and anchor not in pages[target].anchors:
                yield "%s:%d: %s has no such anchor" % (path, line, link)


def main():
    folder = pathlib.Path(sys.argv[1]).resolve()
    if not list(folder.rglob("*.html")):
        sys.exit("There are no pages in %s: build them first." % folder)
    dead = list(dead_links(folder))
    for link in dead:
        print(link)
    sys.exit(1 if dead else 0)


if __name__ == "__main__":
    main()
