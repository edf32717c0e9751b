#!/usr/bin/env python3
"""Writes the sample Apple Mail store in samples/store.

Every message here was written for Pellomar's own tests: the people and
addresses are invented (example.org, example.com) and the attachments are
tiny files made below. Run it from anywhere; it replaces samples/store.
"""
import base64
import os
import quopri
import shutil
import struct
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
STORE = os.path.join(HERE, "store")

TRAILER = (b'<?xml version="1.0" encoding="UTF-8"?>\n'
           b'<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" '
           b'"http://www.apple.com/DTDs/PropertyList-1.0.dtd">\n'
           b'<plist version="1.0">\n<dict>\n'
           b'\t<key>date-received</key>\n\t<integer>1362473229</integer>\n'
           b'\t<key>flags</key>\n\t<integer>8590195713</integer>\n'
           b'</dict>\n</plist>\n')

PROJECTS = "V2/Mailboxes/Work.mbox/Projects.mbox/6F3A2C1E-8B4D-4E2A-9C7F-1D2E3F4A5B6C/Data/3/Messages"
INBOX = "V2/Mailboxes/Inbox.mbox/Messages"
WORK = "V2/Mailboxes/Work.mbox/Messages"
IMAP = "V2/IMAP-anna@mail.example.org/INBOX.imapmbox/Messages"
SENT = "V2/IMAP-anna@mail.example.org/Sent Messages.mbox/Messages"
EWS = "V2/EWS-bob@exchange.example.com/Inbox.ewsmbox/Messages"
RSS = "V2/RSS/Apple Hot News.rssmbox/Messages"


def png_1x1(rgb):
    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xffffffff)
    raw = b"\x00" + bytes(rgb)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 1, 1, 8, 2, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b""))


GIF_1x1 = base64.b64decode("R0lGODlhAQABAIAAAAAAAP///yH5BAEAAAAALAAAAAABAAEAAAIBRAA7")


def pdf(text):
    objs = [b"<< /Type /Catalog /Pages 2 0 R >>",
            b"<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
            b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] /Contents 4 0 R "
            b"/Resources << /Font << /F1 5 0 R >> >> >>",
            None,
            b"<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"]
    stream = b"BT /F1 12 Tf 20 50 Td (" + text.encode("latin-1") + b") Tj ET"
    objs[3] = b"<< /Length " + str(len(stream)).encode() + b" >>\nstream\n" + stream + b"\nendstream"
    out = b"%PDF-1.4\n"
    offsets = []
    for i, o in enumerate(objs, 1):
        offsets.append(len(out))
        out += str(i).encode() + b" 0 obj\n" + o + b"\nendobj\n"
    xref = len(out)
    out += b"xref\n0 " + str(len(objs) + 1).encode() + b"\n0000000000 65535 f \n"
    for off in offsets:
        out += b"%010d 00000 n \n" % off
    out += (b"trailer\n<< /Size " + str(len(objs) + 1).encode() + b" /Root 1 0 R >>\nstartxref\n" +
            str(xref).encode() + b"\n%%EOF\n")
    return out


def b64(data):
    text = base64.b64encode(data).decode("ascii")
    return "".join(text[i:i + 76] + "\n" for i in range(0, len(text), 76)).encode("ascii")


def qp(data):
    return quopri.encodestring(data)


def ew(charset, enc, text):
    """One RFC 2047 encoded word."""
    raw = text.encode(charset if charset != "ks_c_5601-1987" else "cp949")
    if enc == "B":
        body = base64.b64encode(raw).decode("ascii")
    else:
        body = "".join(chr(c) if (48 <= c <= 57 or 65 <= c <= 90 or 97 <= c <= 122) else
                       ("_" if c == 32 else "=%02X" % c) for c in raw)
    return "=?%s?%s?%s?=" % (charset, enc, body)


def write(folder, name, message):
    path = os.path.join(STORE, folder, name)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    if name.endswith(".emlxpart"):
        data = message
    else:
        data = str(len(message)).encode() + b"\n" + message + TRAILER
    with open(path, "wb") as f:
        f.write(data)


def hdr(lines):
    return ("\n".join(lines) + "\n").encode("ascii")


def build():
    if os.path.isdir(STORE):
        shutil.rmtree(STORE)

    # --- Local "On My Mac" mailboxes --------------------------------------
    write(INBOX, "11.emlx", hdr([
        "Return-Path: <tom.okafor@example.org>",
        "From: Tom Okafor <tom.okafor@example.org>",
        "To: Anna Lindqvist <anna@mail.example.org>",
        "Subject: Lunch on Friday?",
        "Date: 05 Mar 13 09:15:00 GMT",
        "X-Priority: 3 (Normal)",
        "Message-Id: <11.lunch@example.org>",
        "Mime-Version: 1.0 (Apple Message framework v1283)",
        "Content-Type: text/plain; charset=us-ascii",
        "Content-Transfer-Encoding: 7bit",
        "",
        "Hi Anna,",
        "",
        "shall we try the new place on the corner on Friday at noon?",
        "",
        "Tom",
    ]))

    body12_plain = ("Anna,\n\n"
                    "From the minutes of Monday:\n"
                    "From now on the weekly call moves to Tuesdays.\n"
                    ">From the archive: nothing changes for the release.\n\n"
                    "Grüße, Jörg\n").encode("utf-8")
    body12_html = ("<html><body><p>Anna,</p>\n<p>From the minutes of Monday:<br>\n"
                   "From now on the weekly call moves to Tuesdays.</p>\n"
                   "<p>Grüße, Jörg</p></body></html>\n").encode("utf-8")
    write(INBOX, "12.emlx", hdr([
        "From: =?utf-8?Q?J=C3=B6rg_Bauer?= <joerg.bauer@example.com>",
        "To: anna@mail.example.org",
        "Subject: Minutes, and a line that starts with From",
        "Date: Mon, 11 Mar 2013 17:42:10 +0100",
        "Mime-Version: 1.0",
        "Content-Type: multipart/alternative; boundary=\"Apple-Mail=_A12\"",
        "",
        "",
        "--Apple-Mail=_A12",
        "Content-Transfer-Encoding: 8bit",
        "Content-Type: text/plain; charset=utf-8; format=flowed",
        "",
    ]) + body12_plain + hdr([
        "",
        "--Apple-Mail=_A12",
        "Content-Transfer-Encoding: 8bit",
        "Content-Type: text/html; charset=\"utf-8\"",
        "",
    ]) + body12_html + hdr([
        "",
        "--Apple-Mail=_A12--",
    ]))

    write(INBOX, "13.emlx", hdr([
        "From: Lea Moreau <lea.moreau@example.com>",
        "To: anna@mail.example.org",
        "Subject: " + ew("utf-8", "Q", "Café") + " " + ew("utf-8", "Q", " au lait, tomorrow?"),
        "Date: Thu, 14 Mar 2013 08:01:59 +0000",
        "Mime-Version: 1.0",
        "Content-Type: multipart/alternative;",
        "\tboundary=\"Apple-Mail=_B13\"",
        "",
        "",
        "--Apple-Mail=_B13",
        "Content-Transfer-Encoding: quoted-printable",
        "Content-Type: text/plain;",
        "\tcharset=utf-8",
        "",
    ]) + qp("Café au lait at the station, 8:30?\n— Léa\n".encode("utf-8")) + hdr([
        "",
        "--Apple-Mail=_B13--",
    ]))

    # --- Work and its nested Projects mailbox ------------------------------
    plain21 = "Bonjour à tous,\n\nla réunion d'équipe a lieu lundi à 10 h, salle Élysée.\n\nRenée\n"
    html21 = ("<html><body><p>Bonjour à tous,</p><p>la réunion d'équipe a lieu lundi à 10 h, "
              "salle <b>Élysée</b>.</p><p>Renée</p></body></html>\n")
    write(WORK, "21.emlx", hdr([
        "From: =?iso-8859-1?Q?Ren=E9e_Dubois?= <renee.dubois@example.com>",
        "To: Work Team <team@example.com>",
        "X-Priority: 1 (Highest)",
        "Subject: =?iso-8859-1?Q?R=E9union_d'=E9quipe_lundi?=",
        "Date: Tue, 05 Mar 2013 14:07:09 +0530",
        "Mime-Version: 1.0 (Apple Message framework v1283)",
        "Content-Type: multipart/alternative;",
        "\tboundary=\"Apple-Mail=_C21\"",
        "",
        "",
        "--Apple-Mail=_C21",
        "Content-Transfer-Encoding: quoted-printable",
        "Content-Type: text/plain;",
        "\tcharset=iso-8859-1",
        "",
    ]) + qp(plain21.encode("iso-8859-1")) + hdr([
        "",
        "--Apple-Mail=_C21",
        "Content-Transfer-Encoding: quoted-printable",
        "Content-Type: text/html;",
        "\tcharset=iso-8859-1",
        "",
    ]) + qp(html21.encode("iso-8859-1")) + hdr([
        "",
        "--Apple-Mail=_C21--",
    ]))

    plain22 = "The “final” price is 1 200 € – see the quote.\n"
    html22 = "<html><body><p>The “final” price is <b>1 200 €</b> – see the quote.</p></body></html>\n"
    write(WORK, "22.emlx", hdr([
        "From: Marek Novak <marek.novak@example.org>",
        "To: anna@mail.example.org",
        "Cc: renee.dubois@example.com",
        "Subject: Quote for the new printers",
        "Date: Wed, 06 Mar 2013 11:20:00 -0500",
        "Mime-Version: 1.0",
        "Content-Type: multipart/alternative; boundary=\"----=_Part_22\"",
        "",
        "------=_Part_22",
        "Content-Type: text/plain; charset=\"windows-1252\"",
        "Content-Transfer-Encoding: 8bit",
        "",
    ]) + plain22.encode("windows-1252") + hdr([
        "",
        "------=_Part_22",
        "Content-Type: text/html; charset=\"windows-1252\"",
        "Content-Transfer-Encoding: 8bit",
        "",
    ]) + html22.encode("windows-1252") + hdr([
        "",
        "------=_Part_22--",
    ]))

    write(PROJECTS, "31.emlx", hdr([
        "From: Priya Raman <priya.raman@example.org>",
        "To: Anna Lindqvist <anna@mail.example.org>",
        "Subject: Weekly chart",
        "Date: Fri, 08 Mar 2013 16:45:30 +0000",
        "Mime-Version: 1.0 (Apple Message framework v1283)",
        "Content-Type: multipart/mixed; boundary=\"Apple-Mail=_D31\"",
        "",
        "",
        "--Apple-Mail=_D31",
        "Content-Transfer-Encoding: base64",
        "Content-Type: text/plain;",
        "\tcharset=utf-8",
        "",
    ]) + b64("Here is this week's chart. Numbers are up 4 %.\n\nPriya\n".encode("utf-8")) + hdr([
        "",
        "--Apple-Mail=_D31",
        "Content-Disposition: attachment;",
        "\tfilename=chart.png",
        "Content-Type: image/png;",
        "\tx-unix-mode=0644;",
        "\tname=\"chart.png\"",
        "Content-Transfer-Encoding: base64",
        "",
    ]) + b64(png_1x1((40, 120, 200))) + hdr([
        "",
        "--Apple-Mail=_D31--",
    ]))

    html32 = ('<html><body><p><img src="cid:logo-32@example.org" alt="logo"></p>\n'
              "<p>The new project logo, as promised.</p></body></html>\n")
    write(PROJECTS, "32.emlx", hdr([
        "From: Priya Raman <priya.raman@example.org>",
        "To: anna@mail.example.org",
        "Subject: New logo (inline)",
        "Date: Sat, 09 Mar 2013 10:00:00 +0000",
        "Mime-Version: 1.0 (Apple Message framework v1283)",
        "Content-Type: multipart/alternative;",
        "\tboundary=\"Apple-Mail=_E32-alt\"",
        "",
        "",
        "--Apple-Mail=_E32-alt",
        "Content-Transfer-Encoding: 7bit",
        "Content-Type: text/plain;",
        "\tcharset=us-ascii",
        "",
        "The new project logo, as promised.",
        "",
        "--Apple-Mail=_E32-alt",
        "Content-Type: multipart/related;",
        "\ttype=\"text/html\";",
        "\tboundary=\"Apple-Mail=_E32-rel\"",
        "",
        "",
        "--Apple-Mail=_E32-rel",
        "Content-Transfer-Encoding: quoted-printable",
        "Content-Type: text/html;",
        "\tcharset=us-ascii",
        "",
    ]) + qp(html32.encode("ascii")) + hdr([
        "",
        "--Apple-Mail=_E32-rel",
        "Content-Transfer-Encoding: base64",
        "Content-Type: image/gif; name=\"logo\"",
        "Content-ID: <logo-32@example.org>",
        "",
    ]) + b64(GIF_1x1) + hdr([
        "",
        "--Apple-Mail=_E32-rel--",
        "",
        "--Apple-Mail=_E32-alt--",
    ]))

    # A partial message: Apple Mail kept the two large parts in 33.2 and 33.3.
    report = pdf("Quarterly report Q1")
    scan = png_1x1((250, 250, 240))
    write(PROJECTS, "33.partial.emlx", hdr([
        "From: Priya Raman <priya.raman@example.org>",
        "To: anna@mail.example.org",
        "Subject: Quarterly report and the signed page",
        "Date: Mon, 01 Apr 2013 09:30:00 +0200",
        "Mime-Version: 1.0 (Apple Message framework v1283)",
        "Content-Type: multipart/mixed; boundary=\"Apple-Mail=_F33\"",
        "",
        "",
        "--Apple-Mail=_F33",
        "Content-Transfer-Encoding: 7bit",
        "Content-Type: text/plain;",
        "\tcharset=us-ascii",
        "",
        "Report and the scanned signature page attached.",
        "",
        "--Apple-Mail=_F33",
        "Content-Disposition: attachment;",
        "\tfilename=\"Quarterly report.pdf\"",
        "Content-Type: application/pdf;",
        "\tname=\"Quarterly report.pdf\"",
        "Content-Transfer-Encoding: base64",
        "X-Apple-Content-Length: %d" % len(b64(report)),
        "",
        "",
        "--Apple-Mail=_F33",
        "Content-Disposition: attachment;",
        "\tfilename=signed-page.png",
        "Content-Type: image/png;",
        "\tname=\"signed-page.png\"",
        "Content-Transfer-Encoding: base64",
        "X-Apple-Content-Length: %d" % len(b64(scan)),
        "",
        "",
        "--Apple-Mail=_F33--",
    ]))
    write(PROJECTS, "33.2.emlxpart", b64(report))
    write(PROJECTS, "33.3.emlxpart", b64(scan))

    write(PROJECTS, "34.emlx", hdr([
        "From: " + ew("utf-8", "B", "Jürgen Weiß") + " <juergen.weiss@example.com>",
        "To: anna@mail.example.org",
        "Subject: Notes and overview",
        "Date: Tue, 02 Apr 2013 13:14:15 +0200",
        "Mime-Version: 1.0",
        "Content-Type: multipart/mixed; boundary=\"Apple-Mail=_G34\"",
        "",
        "",
        "--Apple-Mail=_G34",
        "Content-Transfer-Encoding: 7bit",
        "Content-Type: text/plain;",
        "\tcharset=us-ascii",
        "",
        "Two files: the build notes (no extension) and the overview.",
        "",
        "--Apple-Mail=_G34",
        "Content-Type: application/octet-stream; name=\"README\"",
        "Content-Disposition: attachment; filename=\"README\"",
        "Content-Transfer-Encoding: base64",
        "",
    ]) + b64(b"Build notes\n===========\nRun make, then make check.\n") + hdr([
        "",
        "--Apple-Mail=_G34",
        "Content-Type: application/pdf; name=\"" + ew("utf-8", "B", "Übersicht.pdf") + "\"",
        "Content-Disposition: attachment; filename=\"" + ew("utf-8", "B", "Übersicht.pdf") + "\"",
        "Content-Transfer-Encoding: base64",
        "",
    ]) + b64(pdf("Overview")) + hdr([
        "",
        "--Apple-Mail=_G34--",
    ]))

    # --- IMAP account -------------------------------------------------------
    plain41 = "Анна, добрый день!\n\nОтчёт готов, посмотрите, пожалуйста.\n\nДмитрий\n"
    html41 = "<html><body><p>Анна, добрый день!</p><p>Отчёт готов.</p><p>Дмитрий</p></body></html>\n"
    write(IMAP, "41.emlx", hdr([
        "From: " + ew("koi8-r", "B", "Дмитрий Соколов") + " <dmitry.sokolov@example.org>",
        "To: anna@mail.example.org",
        "Subject: " + ew("koi8-r", "B", "Отчёт за март"),
        "Date: Wed, 03 Apr 2013 07:05:00 +0400",
        "Mime-Version: 1.0",
        "Content-Type: multipart/alternative; boundary=\"=-H41\"",
        "",
        "--=-H41",
        "Content-Type: text/plain; charset=koi8-r",
        "Content-Transfer-Encoding: 8bit",
        "",
    ]) + plain41.encode("koi8-r") + hdr([
        "",
        "--=-H41",
        "Content-Type: text/html; charset=koi8-r",
        "Content-Transfer-Encoding: base64",
        "",
    ]) + b64(html41.encode("koi8-r")) + hdr([
        "",
        "--=-H41--",
    ]))

    plain42 = "アンナさん\n\n来週の打ち合わせは火曜日の午後二時からです。\n\n佐藤\n"
    write(IMAP, "42.emlx", hdr([
        "From: Sato Yui <yui.sato@example.com>",
        "To: anna@mail.example.org",
        "Subject: " + ew("ISO-2022-JP", "B", "打ち合わせの件"),
        "Date: Thu, 04 Apr 2013 18:30:00 +0900",
        "Mime-Version: 1.0",
        "Content-Type: multipart/alternative; boundary=\"jp42\"",
        "",
        "--jp42",
        "Content-Type: text/plain; charset=ISO-2022-JP",
        "Content-Transfer-Encoding: 7bit",
        "",
    ]) + plain42.encode("iso2022_jp") + hdr([
        "",
        "--jp42--",
    ]))

    html43 = "<html><body><p>안나 씨, 보고서를 첨부합니다.</p><p>김민준</p></body></html>\n"
    write(IMAP, "43.emlx", hdr([
        "From: Kim Minjun <minjun.kim@example.org>",
        "To: anna@mail.example.org",
        "Subject: " + ew("ks_c_5601-1987", "Q", "보고서"),
        "Date: Fri, 05 Apr 2013 11:11:11 +0900",
        "Mime-Version: 1.0",
        "Content-Type: multipart/mixed; boundary=\"kr43\"",
        "",
        "--kr43",
        "Content-Type: text/html; charset=\"ks_c_5601-1987\"",
        "Content-Transfer-Encoding: base64",
        "",
    ]) + b64(html43.encode("cp949")) + hdr([
        "",
        "--kr43",
        "Content-Type: application/vnd.ms-excel; name=\"" + ew("ks_c_5601-1987", "Q", "보고서.csv") + "\"",
        "Content-Disposition: attachment; filename=\"" + ew("ks_c_5601-1987", "Q", "보고서.csv") + "\"",
        "Content-Transfer-Encoding: base64",
        "",
    ]) + b64("항목,금액\n임대료,1200000\n".encode("cp949")) + hdr([
        "",
        "--kr43--",
    ]))

    write(IMAP, "44.emlx", hdr([
        "From: Noreply Calendar <calendar@example.com>",
        "To: anna@mail.example.org",
        "Date: Wed,",
        " 12 Jun 2013 08:30:00 -0700",
        "Mime-Version: 1.0",
        "Content-Type: multipart/alternative; boundary=\"cal44\"",
        "",
        "--cal44",
        "Content-Type: text/plain; charset=us-ascii",
        "Content-Transfer-Encoding: 7bit",
        "",
        "Reminder: dentist, Thursday 09:00. (This message has no subject line.)",
        "",
        "--cal44--",
    ]))

    write(IMAP, "45.emlx", hdr([
        "From: Lea Moreau <lea.moreau@example.com>",
        "To: anna@mail.example.org",
        "Subject: CV for the opening",
        "Date: Mon, 08 Apr 2013 20:02:03 +0200",
        "X-Priority: 2",
        "Mime-Version: 1.0",
        "Content-Type: multipart/mixed; boundary=\"cv45\"",
        "",
        "--cv45",
        "Content-Type: text/plain; charset=iso-8859-1",
        "Content-Transfer-Encoding: quoted-printable",
        "",
    ]) + qp("Voici mon CV, en pièce jointe.\nLéa\n".encode("iso-8859-1")) + hdr([
        "",
        "--cv45",
        "Content-Type: application/pdf; name=\"" + ew("iso-8859-1", "Q", "résumé.pdf") + "\"",
        "Content-Disposition: attachment; filename=\"" + ew("iso-8859-1", "Q", "résumé.pdf") + "\"",
        "Content-Transfer-Encoding: base64",
        "",
    ]) + b64(pdf("Lea Moreau - CV")) + hdr([
        "",
        "--cv45--",
    ]))

    write(SENT, "46.emlx", hdr([
        "From: Anna Lindqvist <anna@mail.example.org>",
        "To: Tom Okafor <tom.okafor@example.org>, Lea Moreau <lea.moreau@example.com>,",
        " Priya Raman <priya.raman@example.org>",
        "Subject: Re: Lunch on Friday?",
        "Date: Tue, 05 Mar 2013 09:40:12 +0100",
        "X-Priority: 5 (Lowest)",
        "Mime-Version: 1.0 (Apple Message framework v1283)",
        "Content-Type: multipart/alternative; boundary=\"Apple-Mail=_I46\"",
        "",
        "",
        "--Apple-Mail=_I46",
        "Content-Transfer-Encoding: 7bit",
        "Content-Type: text/plain;",
        "\tcharset=us-ascii",
        "",
        "Friday works, I asked Lea and Priya to come along.",
        "",
        "> shall we try the new place on the corner on Friday at noon?",
        "",
        "--Apple-Mail=_I46--",
    ]))

    # --- Exchange (EWS) account ---------------------------------------------
    html51 = ("<html><body><h1>Newsletter</h1><p>Welcome to the spring issue — "
              "everything is 100% fictional.</p><p>Signature image attached.</p></body></html>\n")
    write(EWS, "51.emlx", hdr([
        "From: Bob Hartmann <bob@exchange.example.com>",
        "To: anna@mail.example.org",
        "Subject: Spring newsletter",
        "Date: Tue, 09 Apr 2013 06:00:00 +0000",
        "Mime-Version: 1.0",
        "Content-Type: multipart/mixed; boundary=\"_003_ews51_\"",
        "",
        "--_003_ews51_",
        "Content-Type: text/html; charset=\"utf-8\"",
        "Content-Transfer-Encoding: quoted-printable",
        "",
    ]) + qp(html51.encode("utf-8")) + hdr([
        "",
        "--_003_ews51_",
        "Content-Type: image/gif; name=\"signature.gif\"",
        "Content-Description: signature.gif",
        "Content-Disposition: attachment; filename=\"signature.gif\"; size=43;",
        "\tcreation-date=\"Tue, 09 Apr 2013 06:00:00 GMT\"",
        "Content-Transfer-Encoding: base64",
        "",
    ]) + b64(GIF_1x1) + hdr([
        "",
        "--_003_ews51_--",
    ]))

    plain52 = "Please find invoice 2024-117 attached.\nPayment within 30 days.\n"
    html52 = "<html><body><p>Please find invoice <b>2024-117</b> attached.</p><p>Payment within 30 days.</p></body></html>\n"
    write(EWS, "52.emlx", hdr([
        "From: Accounts <accounts@exchange.example.com>",
        "To: anna@mail.example.org",
        "X-Priority: 2",
        "Subject: Invoice 2024-117",
        "Date: Wed, 10 Apr 2013 15:16:17 +0000",
        "Mime-Version: 1.0",
        "Content-Type: multipart/mixed;",
        "\tboundary=\"_mixed52_\"",
        "",
        "--_mixed52_",
        "Content-Type: multipart/alternative;",
        "\tboundary=\"_alt52_\"",
        "",
        "--_alt52_",
        "Content-Type: text/plain; charset=\"utf-8\"",
        "Content-Transfer-Encoding: quoted-printable",
        "",
    ]) + qp(plain52.encode("utf-8")) + hdr([
        "",
        "--_alt52_",
        "Content-Type: text/html; charset=\"utf-8\"",
        "Content-Transfer-Encoding: quoted-printable",
        "",
    ]) + qp(html52.encode("utf-8")) + hdr([
        "",
        "--_alt52_--",
        "",
        "--_mixed52_",
        "Content-Type: application/pdf;",
        "\tname=\"Invoice 2024-117.pdf\"",
        "Content-Disposition: attachment; filename=\"Invoice 2024-117.pdf\"",
        "Content-Transfer-Encoding: base64",
        "",
    ]) + b64(pdf("Invoice 2024-117")) + hdr([
        "",
        "--_mixed52_--",
    ]))

    # --- Apple's news feed: never listed ------------------------------------
    write(RSS, "61.emlx", hdr([
        "From: Hot News <news@example.org>",
        "Subject: Feed item that the scan skips",
        "Date: Thu, 11 Apr 2013 12:00:00 +0000",
        "Content-Type: text/plain; charset=us-ascii",
        "",
        "This message lives in the news feed folder and is not listed.",
    ]))


if __name__ == "__main__":
    build()
    count = sum(len(files) for _, _, files in os.walk(STORE))
    print("wrote %d files under %s" % (count, STORE))
