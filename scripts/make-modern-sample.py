#!/usr/bin/env python3
"""Writes the sample store in samples/modern: the layout of today's Apple Mail.

    V10/<account UUID>/<Mailbox>.mbox/<mailbox UUID>/Data/<d>/<d>/Messages/<N>.emlx
    V10/<account UUID>/<Mailbox>.mbox/<mailbox UUID>/Data/<d>/<d>/Attachments/<N>/<section>/<file>
    V10/Mailboxes/...          the local mailboxes ("On My Mac")
    V10/MailData/...           Mail's own databases, no messages

and beside it, where macOS keeps the accounts of the system (in
~/Library/Accounts beside ~/Library/Mail), samples/Accounts/Accounts4.sqlite:
a database of the accounts that gives the two account folders their names.

Every person, address and file here is invented (example.net, example.org,
example.com); the attachments are tiny files made below. The output is the
same bytes on every run. Run it from anywhere; it replaces samples/modern.
"""
import base64
import hashlib
import importlib.util
import os
import shutil
import sqlite3
import struct
import unicodedata
import uuid
import zlib

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
STORE = os.path.join(ROOT, "samples", "modern")
ACCOUNTS = os.path.join(ROOT, "samples", "Accounts", "Accounts4.sqlite")
VERSION = "V10"
ACCOUNT_IMAP = "3B9F2E61-7C4A-4D85-A0E2-5F1B8C6D9A47"
ACCOUNT_WORK = "C41D8E07-92B5-4F3A-8E6C-0A7B2D9F1E53"
LOCAL = "Mailboxes"

# The PDF and transfer-encoding helpers of the older store's generator.
_found = importlib.util.spec_from_file_location("make_store", os.path.join(ROOT, "samples", "make-store.py"))
_older = importlib.util.module_from_spec(_found)
_found.loader.exec_module(_older)
pdf, b64, qp = _older.pdf, _older.b64, _older.qp

HIGH_BIT = 1 << 33  # set by Mail on most messages; its meaning is not documented
READ, DELETED, ANSWERED, FLAGGED = 1, 2, 4, 16


# --- Small real files ---------------------------------------------------------

def png(width, height, pixel):
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xffffffff)
    raw = b"".join(b"\x00" + b"".join(bytes(pixel(x, y)) for x in range(width)) for y in range(height))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))


def wire_size(encoded):
    """The size an IMAP server reports for an encoded body: CRLF line ends."""
    return len(encoded) + encoded.count(b"\n")


def ew_b(text):
    return "=?utf-8?B?" + base64.b64encode(text.encode("utf-8")).decode("ascii") + "?="


# --- Store layout ------------------------------------------------------------

def mailbox_uuid(path):
    return str(uuid.UUID(bytes=hashlib.sha1(path.encode("utf-8")).digest()[:16], version=4)).upper()


def mailbox_dir(account, *names):
    """<account>/<A>.mbox/<B>.mbox/<mailbox UUID>"""
    path = "/".join([VERSION, account] + [n + ".mbox" for n in names])
    return path + "/" + mailbox_uuid(path)


def data_dir(number):
    """Data/<d>/<d>/...: the number without its last three digits, reversed."""
    digits = str(number)[:-3][::-1]
    return "/".join(["Data"] + list(digits))


def put(relpath, data):
    path = os.path.join(STORE, relpath)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data)


def xml_text(text):
    return text.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;")


def trailer(props):
    out = ('<?xml version="1.0" encoding="UTF-8"?>\n'
           '<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" '
           '"http://www.apple.com/DTDs/PropertyList-1.0.dtd">\n'
           '<plist version="1.0">\n<dict>\n')
    for key in sorted(props):
        value = props[key]
        out += "\t<key>%s</key>\n" % key
        if isinstance(value, int):
            out += "\t<integer>%d</integer>\n" % value
        else:
            out += "\t<string>%s</string>\n" % xml_text(value)
    return (out + "</dict>\n</plist>\n").encode("utf-8")


def message(mailbox, number, body, flags, subject, received, remote_id=None, partial=False,
            attachments=(), emlxparts=()):
    """Writes one message file with its Attachments and .emlxpart files.

    attachments: (section, file name, decoded bytes); emlxparts: (section, encoded bytes).
    """
    folder = mailbox + "/" + data_dir(number)
    props = {"date-received": received, "date-last-viewed": received + 3600,
             "flags": flags, "subject": subject}
    if not flags & READ:
        del props["date-last-viewed"]
    if remote_id is not None:
        props["remote-id"] = str(remote_id)
    name = "%d.partial.emlx" % number if partial else "%d.emlx" % number
    put(folder + "/Messages/" + name, str(len(body)).encode() + b"\n" + body + trailer(props))
    for section, file_name, data in attachments:
        put("%s/Attachments/%d/%s/%s" % (folder, number, section, unicodedata.normalize("NFD", file_name)),
            data)
    for section, data in emlxparts:
        put("%s/Messages/%d.%s.emlxpart" % (folder, number, section), data)


def lines(*items):
    return ("\n".join(items) + "\n").encode("utf-8")


def apple_headers(sender, to, subject, date, boundary, msgid, kind="multipart/mixed"):
    """The header block as Apple Mail writes it when it sends."""
    return lines(
        "From: " + sender,
        "Content-Type: " + kind + ";",
        '\tboundary="' + boundary + '"',
        "Mime-Version: 1.0 (Mac OS X Mail 16.0 \\(3774.500.171.1.1\\))",
        "Subject: " + subject,
        "Date: " + date,
        "Message-Id: <" + msgid + ">",
        "To: " + to,
        "X-Mailer: Apple Mail (2.3774.500.171.1.1)",
        "",
        "")


def text_part(boundary, text, cte="7bit", charset="us-ascii", kind="plain"):
    encoded = {"7bit": lambda d: d, "8bit": lambda d: d, "quoted-printable": qp,
               "base64": b64}[cte](text.encode(charset))
    return lines("--" + boundary, "Content-Transfer-Encoding: " + cte,
                 "Content-Type: text/%s;" % kind, "\tcharset=" + charset, "") + encoded + b"\n"


def removed_part(boundary, headers, encoded):
    """A part whose body Mail left out: its headers, the size, an empty body."""
    return lines("--" + boundary, *headers, "X-Apple-Content-Length: %d" % wire_size(encoded), "")


def inline_part(boundary, headers, encoded):
    return lines("--" + boundary, *headers, "") + encoded + b"\n"


def close(boundary):
    return lines("--" + boundary + "--")


def attachment_headers(kind, name, cte="base64", disposition="attachment"):
    return ["Content-Disposition: " + disposition + ";", '\tfilename="' + name + '"',
            "Content-Transfer-Encoding: " + cte, "Content-Type: " + kind + ";", '\tname="' + name + '"']


ME = "Jonas Berg <jonas.berg@example.net>"
WORK_ME = "Jonas Berg <jberg@work.example.com>"


def build():
    if os.path.isdir(STORE):
        shutil.rmtree(STORE)

    imap_inbox = mailbox_dir(ACCOUNT_IMAP, "INBOX")
    imap_sent = mailbox_dir(ACCOUNT_IMAP, "Sent Messages")
    projects = mailbox_dir(ACCOUNT_IMAP, "Projects")
    garden = mailbox_dir(ACCOUNT_IMAP, "Projects", "Garden Plans")
    ideas = mailbox_dir(ACCOUNT_IMAP, "Projects", "Garden Plans", "Ideas \U0001F4A1")
    work_inbox = mailbox_dir(ACCOUNT_WORK, "INBOX")
    work_deleted = mailbox_dir(ACCOUNT_WORK, "Deleted Messages")
    archive = mailbox_dir(LOCAL, "Archive 2023")
    receipts = mailbox_dir(LOCAL, "Receipts", "Old Receipts")

    # Mail's own files: a database, its journal and a rules list; no messages.
    put(VERSION + "/MailData/Envelope Index",
        b"SQLite format 3\x00\x10\x00\x01\x01\x00\x40\x20\x20" + bytes(1000))
    put(VERSION + "/MailData/Envelope Index-wal", b"")
    put(VERSION + "/MailData/SyncedRules.plist",
        trailer({"RulesVersion": 1, "LastSyncedDevice": "sample"}))
    for mbox in (imap_inbox, work_inbox):
        put(mbox.rsplit("/", 1)[0] + "/Info.plist", trailer({"DisplayName": "INBOX", "IMAPMailboxVersion": 3}))

    # --- IMAP account: INBOX ---------------------------------------------
    message(imap_inbox, 101, lines(
        "Return-Path: <ines.varga@example.org>",
        "From: =?utf-8?Q?In=C3=A9s_Varga?= <ines.varga@example.org>",
        "To: " + ME,
        "Subject: =?utf-8?Q?Gr=C3=BC=C3=9Fe_aus_P=C3=A9cs?=",
        "Date: Sat, 07 Oct 2023 18:02:11 +0200",
        "Message-ID: <101.postcard@example.org>",
        "MIME-Version: 1.0",
        "Content-Type: text/plain; charset=utf-8",
        "Content-Transfer-Encoding: 8bit",
        "",
        "Szia Jonas,",
        "",
        "viele Grüße aus Pécs! Das Wetter ist schön, der Kaffee stark, die",
        "Straßen voller Leute. Ár: 1 200 Ft für ein Stück Rétes — zu günstig.",
        "",
        "Inés ☕",
    ), READ | HIGH_BIT, "Grüße aus Pécs", 1696694531, remote_id=4101)

    message(imap_inbox, 102, lines(
        "From: Olivier Brunet <olivier.brunet@example.com>",
        "To: jonas.berg@example.net",
        "Subject: Facture du garage",
        "Date: Mon, 09 Oct 2023 08:30:00 +0200",
        "Message-ID: <102.garage@example.com>",
        "MIME-Version: 1.0",
        "Content-Type: text/plain; charset=iso-8859-1",
        "Content-Transfer-Encoding: 8bit",
        "",
    ) + ("Bonjour Jonas,\n\nla réparation du véhicule est terminée : 245,80 EUR TTC.\n"
         "Règlement à réception, merci.\n\nÀ bientôt, Olivier\n").encode("iso-8859-1"),
        0, "Facture du garage", 1696833000, remote_id=4102)

    # Shape 1: mixed[plain, pdf]; the PDF (section 2) was left on the server.
    plan = pdf("Garden plan v2")
    boundary = "Apple-Mail=_5E1A2B3C-0103-4D4E-8F90-A1B2C3D4E5F6"
    message(imap_inbox, 103,
            apple_headers("Maren Holt <maren.holt@example.org>", ME, "Garden plan, second draft",
                          "Thu, 12 Oct 2023 21:14:05 +0200", boundary, "103.plan@example.org") +
            text_part(boundary, "Here is the second draft of the plan.\n\nMaren\n") +
            removed_part(boundary, attachment_headers("application/pdf", "Garden plan v2.pdf"), b64(plan)) +
            close(boundary),
            READ | ANSWERED | (1 << 10) | HIGH_BIT, "Garden plan, second draft", 1697138045,
            remote_id=4103, partial=True, attachments=[("2", "Garden plan v2.pdf", plan)])

    # Shape 2: mixed[alternative[plain, html], pdf, png]; sections 2 and 3 left
    # out. The PDF's name is RFC 2231 pieces (the split falls inside "ü"), the
    # PNG's an RFC 2047 word; Mail upper-cased some values it rewrote.
    costs = pdf("Kostenuebersicht 2024")
    plan_png = png(8, 6, lambda x, y: (30 + 25 * x, 140 + 10 * y, 60))
    boundary = "Apple-Mail=_7C2D4E6F-1467-4A8B-9C0D-1E2F3A4B5C6D"
    alt = "Apple-Mail=_7C2D4E6F-1467-4A8B-9C0D-ALT000000001"
    plain = "Anbei die Kostenübersicht und der Grundriss der Küche.\n\nMaren\n"
    html = ("<html><head><meta http-equiv=\"content-type\" content=\"text/html; charset=utf-8\"></head>"
            "<body><p>Anbei die <b>Kostenübersicht</b> und der Grundriss der Küche.</p>"
            "<p>Maren</p></body></html>\n")
    png_name = ew_b("Grundriss Küche.png")
    message(imap_inbox, 14672,
            lines("From: Maren Holt <maren.holt@example.org>",
                  "Content-Type: multipart/mixed;", '\tboundary="' + boundary + '"',
                  "Mime-Version: 1.0 (Mac OS X Mail 16.0 \\(3774.500.171.1.1\\))",
                  "Subject: =?utf-8?Q?Kosten=C3=BCbersicht_und_Grundriss?=",
                  "Date: Fri, 10 Nov 2023 07:45:12 +0100",
                  "Message-Id: <14672.costs@example.org>",
                  "To: " + ME, "", "") +
            lines("--" + boundary, "Content-Type: multipart/alternative;", '\tboundary="' + alt + '"',
                  "", "") +
            text_part(alt, plain, "quoted-printable", "utf-8") +
            text_part(alt, html, "quoted-printable", "utf-8", "html") + close(alt) + b"\n" +
            removed_part(boundary, [
                "Content-Disposition: ATTACHMENT;",
                "\tfilename*0*=utf-8''Kosten%C3;",
                "\tfilename*1*=%BCbersicht%202024.pdf",
                "Content-Transfer-Encoding: BASE64",
                "Content-Type: application/pdf;",
                "\tname*0*=utf-8''Kosten%C3;",
                "\tname*1*=%BCbersicht%202024.pdf"], b64(costs)) +
            removed_part(boundary, attachment_headers("image/png", png_name, "BASE64", "INLINE"),
                         b64(plan_png)) +
            close(boundary),
            READ | FLAGGED | (2 << 10) | HIGH_BIT, "Kostenübersicht und Grundriss", 1699598712,
            remote_id=14672, partial=True,
            attachments=[("2", "Kostenübersicht 2024.pdf", costs), ("3", "Grundriss Küche.png", plan_png)])
    put(imap_inbox + "/" + data_dir(14672) + "/Attachments/14672/3/.DS_Store",
        b"\x00\x00\x00\x01Bud1" + bytes(56))

    # Shape 3: mixed[plain, mixed[html, txt, png]]; sections 2.2 (quoted-
    # printable text) and 2.3 (a PNG without any name) left out.
    plants = ("Pflanzliste für das Frühjahr\n"
              "============================\n\n"
              "Tomaten (Ochsenherz), Paprika, Zucchini, Kapuzinerkresse, Ringelblumen, Borretsch, "
              "Schnittlauch und Petersilie — alles aus eigener Anzucht, ab Mitte März auf der Fensterbank.\n"
              "Beet Süd: Erdbeeren; Beet Nord: Rhabarber, Johannisbeeren, Stachelbeeren und "
              "eine Reihe Maiglöckchen entlang des Zauns.\n"
              "Gießplan: morgens früh, nie in der Mittagssonne.\n")
    swatch = png(4, 4, lambda x, y: (200, 60 + 40 * x, 90 + 30 * y))
    boundary = "Apple-Mail=_9A8B7C6D-5131-4E2F-8A9B-0C1D2E3F4A5B"
    inner = "Apple-Mail=_9A8B7C6D-5131-4E2F-8A9B-INNER0000002"
    message(imap_inbox, 513139,
            apple_headers("Maren Holt <maren.holt@example.org>", ME, "Pflanzliste",
                          "Sun, 14 Jan 2024 10:03:00 +0100", boundary, "513139.plants@example.org") +
            text_part(boundary, "Pflanzliste und Farbmuster, siehe unten.\n") +
            lines("--" + boundary, "Content-Type: multipart/mixed;", '\tboundary="' + inner + '"', "", "") +
            text_part(inner, "<html><body><p>Die Liste:</p></body></html>\n", kind="html") +
            removed_part(inner, ["Content-Disposition: attachment;",
                                 "\tfilename*=utf-8''Pflanzliste%20Fr%C3%BChjahr.txt",
                                 "Content-Transfer-Encoding: quoted-printable",
                                 "Content-Type: text/plain;", "\tcharset=utf-8;",
                                 '\tname="=?utf-8?Q?Pflanzliste_Fr=C3=BChjahr.txt?="'],
                         qp(plants.encode("utf-8"))) +
            removed_part(inner, ["Content-Disposition: inline", "Content-Transfer-Encoding: base64",
                                 "Content-Type: image/png"], b64(swatch)) +
            close(inner) + b"\n" + close(boundary),
            0 | (2 << 10), "Pflanzliste", 1705222980, remote_id=513139, partial=True,
            attachments=[("2.2", "Pflanzliste Frühjahr.txt", plants.encode("utf-8")),
                         ("2.3", "Mail Attachment.png", swatch)])

    # --- IMAP account: Sent Messages, Projects and its children -------------
    boundary = "Apple-Mail=_1F2E3D4C-0201-4B5A-9687-ALTSENT00201"
    message(imap_sent, 201,
            apple_headers(ME, "Maren Holt <maren.holt@example.org>", "Re: Garden plan, second draft",
                          "Thu, 12 Oct 2023 22:01:40 +0200", boundary, "201.reply@example.net",
                          "multipart/alternative") +
            text_part(boundary, "Looks good. Can we move the shed two metres to the east?\n\n"
                                "> Here is the second draft of the plan.\n") +
            text_part(boundary, "<html><body><p>Looks good. Can we move the shed two metres to the "
                                "east?</p></body></html>\n", kind="html") + close(boundary),
            READ | HIGH_BIT, "Re: Garden plan, second draft", 1697140900, remote_id=88)

    message(projects, 301, lines(
        "From: " + ME, "To: Maren Holt <maren.holt@example.org>",
        "Subject: Budget & schedule",
        "Date: Wed, 04 Oct 2023 12:00:00 +0200", "Message-Id: <301.budget@example.net>",
        "Mime-Version: 1.0", "Content-Type: text/plain; charset=us-ascii",
        "Content-Transfer-Encoding: 7bit", "",
        "Budget: 3 000 EUR. Schedule: digging in March, planting in April.",
    ), READ | FLAGGED | HIGH_BIT, "Budget & schedule", 1696413600, remote_id=301)

    # mixed[plain, pdf, png]: the PDF is still in the message (Mail also
    # keeps a copy under Attachments), the PNG (section 3) was left out.
    quote = pdf("Quote 2023-118")
    photo = png(6, 6, lambda x, y: (90 + 20 * y, 70 + 15 * x, 40))
    boundary = "Apple-Mail=_2B3C4D5E-1240-4F60-8172-93A4B5C6D7E8"
    message(garden, 12405,
            apple_headers("Maren Holt <maren.holt@example.org>", ME, "Quote and a photo of the bed",
                          "Tue, 17 Oct 2023 16:20:00 +0200", boundary, "12405.quote@example.org") +
            text_part(boundary, "The quote from the nursery, and the raised bed as it is now.\n") +
            inline_part(boundary, attachment_headers("application/pdf", "Quote 2023-118.pdf"), b64(quote)) +
            removed_part(boundary, attachment_headers("image/png", "raised bed.png"), b64(photo)) +
            close(boundary),
            READ | (2 << 10) | HIGH_BIT, "Quote and a photo of the bed", 1697552400, remote_id=12405,
            partial=True, attachments=[("2", "Quote 2023-118.pdf", quote), ("3", "raised bed.png", photo)])

    message(ideas, 7, lines(
        "From: " + ME, "To: " + ME,
        "Subject: " + ew_b("Pond idea \U0001F438"),
        "Date: Sat, 21 Oct 2023 09:09:09 +0200", "Message-Id: <7.pond@example.net>",
        "Mime-Version: 1.0", "Content-Type: text/plain; charset=utf-8",
        "Content-Transfer-Encoding: base64", "",
    ) + b64("A small pond by the hedge \U0001F438, about 1 m × 2 m.\n".encode("utf-8")),
        0 | HIGH_BIT, "Pond idea \U0001F438", 1697872149, remote_id=7)

    # --- Work account ---------------------------------------------------------
    # Older detached form kept in a new layout: the encoded body of section 2
    # in 88.2.emlxpart beside the message, no Attachments folder.
    slides = pdf("Kick-off slides")
    boundary = "----=_Part_88_1122334455.1700000000000"
    message(work_inbox, 88, lines(
        "From: Team Lead <lead@work.example.com>", "To: " + WORK_ME, "Subject: Kick-off slides",
        "Date: Tue, 14 Nov 2023 09:00:00 +0000", "Message-ID: <88.kickoff@work.example.com>",
        "MIME-Version: 1.0", "Content-Type: multipart/mixed;", '\tboundary="' + boundary + '"', "", "") +
        text_part(boundary, "Slides for Thursday attached.\n") +
        removed_part(boundary, attachment_headers("application/pdf", "Kick-off.pdf"), b64(slides)) +
        close(boundary),
        READ | (1 << 10), "Kick-off slides", 1699952400, remote_id=88, partial=True,
        emlxparts=[("2", b64(slides))])

    # Shape 1 again, but the file under Attachments is gone.
    board = png(5, 3, lambda x, y: (250, 250, 250 - 40 * x))
    boundary = "----=_Part_1507_998877.1701000000000"
    message(work_inbox, 1507, lines(
        "From: Team Lead <lead@work.example.com>", "To: " + WORK_ME, "Subject: Whiteboard after the review",
        "Date: Mon, 27 Nov 2023 15:30:00 +0000", "Message-ID: <1507.board@work.example.com>",
        "MIME-Version: 1.0", "Content-Type: multipart/mixed;", '\tboundary="' + boundary + '"', "", "") +
        text_part(boundary, "Photo of the whiteboard.\n") +
        removed_part(boundary, attachment_headers("image/png", "whiteboard.png"), b64(board)) +
        close(boundary),
        READ | (1 << 10), "Whiteboard after the review", 1701099000, remote_id=1507, partial=True)

    # Three parts left out: two PNGs of the same name (sections 2 and 3) and a
    # 7bit text (section 4).
    left = png(3, 3, lambda x, y: (10, 10 + 80 * x, 10 + 80 * y))
    right = png(3, 3, lambda x, y: (10 + 80 * y, 10, 10 + 80 * x))
    todo = ("Open points after the offsite\n"
            "- order the new badges\n"
            "- book the room for the retro\n"
            "- send the photos to everyone\n").encode("ascii")
    boundary = "Apple-Mail=_3C4D5E6F-2305-4A17-B8C9-D0E1F2A3B4C5"
    message(work_inbox, 230517,
            apple_headers("Ravi Menon <ravi.menon@work.example.com>", WORK_ME, "Offsite photos and open points",
                          "Fri, 01 Dec 2023 17:45:00 +0000", boundary, "230517.offsite@work.example.com") +
            text_part(boundary, "Two photos from the phone (both called image.png) and the list.\n") +
            removed_part(boundary, attachment_headers("image/png", "image.png"), b64(left)) +
            removed_part(boundary, attachment_headers("image/png", "image.png"), b64(right)) +
            removed_part(boundary, attachment_headers("text/plain", "open points.txt", "7bit"), todo) +
            close(boundary),
            0 | FLAGGED | (3 << 10), "Offsite photos and open points", 1701452700, remote_id=230517,
            partial=True, attachments=[("2", "image.png", left), ("3", "image.png", right),
                                       ("4", "open points.txt", todo)])

    message(work_deleted, 412, lines(
        "From: Newsletter <news@shop.example.com>", "To: " + WORK_ME, "Subject: Last chance: 20 % off",
        "Date: Wed, 15 Nov 2023 06:00:00 +0000", "Message-ID: <412.promo@shop.example.com>",
        "MIME-Version: 1.0", "Content-Type: text/plain; charset=us-ascii", "", "",
        "This offer ends tonight. (Deleted, kept until the mailbox is compacted.)",
    ), READ | DELETED, "Last chance: 20 % off", 1700028000, remote_id=412)

    # --- On My Mac -------------------------------------------------------------
    # Section 2 both as an .emlxpart (encoded) and under Attachments (decoded).
    tickets = pdf("Train tickets")
    boundary = "Apple-Mail=_4D5E6F70-1042-4B28-C9DA-E1F2A3B4C5D6"
    message(archive, 1042,
            apple_headers("Rail Booking <booking@rail.example.com>", ME, "Your tickets",
                          "Sat, 02 Sep 2023 11:11:00 +0200", boundary, "1042.tickets@rail.example.com") +
            text_part(boundary, "Your tickets are attached. Have a good trip!\n") +
            removed_part(boundary, attachment_headers("application/pdf", "Tickets Hamburg.pdf"), b64(tickets)) +
            close(boundary),
            READ | ANSWERED | (1 << 10), "Your tickets", 1693645860, partial=True,
            attachments=[("2", "Tickets Hamburg.pdf", tickets)], emlxparts=[("2", b64(tickets))])

    # Not partial, but Mail keeps a copy of the PDF under Attachments.
    receipt = pdf("Receipt 305")
    boundary = "Apple-Mail=_5E6F7081-0305-4C39-DAEB-F2A3B4C5D6E7"
    message(receipts, 305,
            apple_headers("Hardware Store <receipts@store.example.com>", ME, "Receipt 305",
                          "Tue, 21 Mar 2023 14:05:00 +0100", boundary, "305.receipt@store.example.com") +
            text_part(boundary, "Thank you for your purchase.\n") +
            inline_part(boundary, attachment_headers("application/pdf", "Receipt 305.pdf"), b64(receipt)) +
            close(boundary),
            READ | (1 << 10), "Receipt 305", 1679403900,
            attachments=[("2", "Receipt 305.pdf", receipt)])


def build_accounts():
    """The table of the system's account database that names accounts.

    The IMAP account has a description of its own. The work account's mail
    account has none: its name is its parent account's, which also has a
    calendar account without a folder in the store.
    """
    if os.path.exists(ACCOUNTS):
        os.remove(ACCOUNTS)
    os.makedirs(os.path.dirname(ACCOUNTS), exist_ok=True)
    db = sqlite3.connect(ACCOUNTS)
    db.execute("CREATE TABLE ZACCOUNT (Z_PK INTEGER PRIMARY KEY, ZIDENTIFIER VARCHAR, "
               "ZACCOUNTDESCRIPTION VARCHAR, ZUSERNAME VARCHAR, ZPARENTACCOUNT INTEGER)")
    db.executemany("INSERT INTO ZACCOUNT VALUES (?, ?, ?, ?, ?)", [
        (1, ACCOUNT_IMAP, "Jonas (example.net)", "jonas.berg@example.net", None),
        (2, "6A0E5B2C-1D47-4F83-9B6E-2C8D4A7F0B19", "Work", "jberg@work.example.com", None),
        (3, ACCOUNT_WORK, None, "jberg@work.example.com", 2),
        (4, "E27F9C44-5B1A-4C6D-8E3F-7A9B0C1D2E3F", "", "jberg@work.example.com", 2),
    ])
    db.commit()
    db.close()


if __name__ == "__main__":
    build()
    build_accounts()
    files = [os.path.join(d, f) for d, _, fs in os.walk(STORE) for f in fs]
    print("wrote %d files, %d bytes under %s" % (len(files), sum(os.path.getsize(f) for f in files), STORE))
