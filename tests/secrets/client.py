#!/usr/bin/python3
# A Secret Service client for the provider's tests: python3-secretstorage (over an
# encrypted session) and raw jeepney calls for what no polite client sends.
import os
import sys
import time

import secretstorage
from jeepney import DBusAddress, HeaderFields, MessageType, new_method_call
from jeepney.wrappers import DBusErrorResponse, unwrap_msg

SS = 'org.freedesktop.secrets'
ROOT = '/org/freedesktop/secrets'


def attrs_of(args):
    return dict(a.split('=', 1) for a in args)


def service(conn, path=ROOT, iface='org.freedesktop.Secret.Service'):
    return DBusAddress(path, bus_name=SS, interface=iface)


def call(conn, addr, method, sig, *body):
    return unwrap_msg(conn.send_and_get_reply(new_method_call(addr, method, sig, body), timeout=30))


def error_of(conn, addr, method, sig, *body):
    try:
        call(conn, addr, method, sig, *body)
    except DBusErrorResponse as e:
        return e.name
    return None


def main():
    cmd, args = sys.argv[1], sys.argv[2:]
    conn = secretstorage.dbus_init()
    if cmd == 'create':
        coll = secretstorage.get_default_collection(conn)
        item = coll.create_item(args[0], attrs_of(args[2:]), args[1].encode(), replace=True)
        print('encrypted=%s' % coll.session.encrypted)
        print(item.item_path)
    elif cmd == 'search':
        coll = secretstorage.get_default_collection(conn)
        for item in coll.search_items(attrs_of(args)):
            print('%s %s' % (item.get_label(), sorted(item.get_attributes().items())))
    elif cmd == 'read':
        coll = secretstorage.get_default_collection(conn)
        items = list(coll.search_items(attrs_of(args)))
        try:
            print('secret=%s' % items[0].get_secret().decode())
        except DBusErrorResponse as e:
            print('error=%s' % e.name)
    elif cmd == 'unlock':
        coll = secretstorage.get_default_collection(conn)
        print('locked=%s' % coll.is_locked())
        print('dismissed=%s' % coll.unlock())
        print('locked=%s' % coll.is_locked())
    elif cmd == 'delete':
        coll = secretstorage.get_default_collection(conn)
        items = list(coll.search_items(attrs_of(args)))
        try:
            items[0].delete()
            print('deleted')
        except DBusErrorResponse as e:
            print('error=%s' % e.name)
    elif cmd == 'lock':
        coll = secretstorage.get_default_collection(conn)
        coll.lock()
        print('locked=%s' % coll.is_locked())
    elif cmd == 'prompt-and-exit':
        unlocked, prompt = call(conn, service(conn), 'Unlock', 'ao', [ROOT + '/aliases/default'])
        addr = DBusAddress(prompt, bus_name=SS, interface='org.freedesktop.Secret.Prompt')
        call(conn, addr, 'Prompt', 's', '')
        print('prompted', flush=True)
        os._exit(0)
    elif cmd == 'read-and-hang':
        coll = secretstorage.get_default_collection(conn)
        items = list(coll.search_items(attrs_of(args)))
        session = secretstorage.util.open_session(conn)
        addr = DBusAddress(items[0].item_path, bus_name=SS, interface='org.freedesktop.Secret.Item')
        conn.send(new_method_call(addr, 'GetSecret', 'o', (session.object_path,)))
        print('asked', flush=True)
        time.sleep(60)
    elif cmd == 'hostile':
        hostile(conn)
    elif cmd == 'flood':
        flood(conn, int(args[0]))


def hostile(conn):
    svc = service(conn)
    coll_path = ROOT + '/aliases/default'
    coll = DBusAddress(coll_path, bus_name=SS, interface='org.freedesktop.Secret.Collection')
    out, session = call(conn, svc, 'OpenSession', 'sv', 'plain', ('s', ''))
    checks = [
        ('unknown path', error_of(conn, service(conn, ROOT + '/collection/nobody/1',
                                                'org.freedesktop.Secret.Item'), 'Delete', '')),
        ('unknown item', error_of(conn, service(conn, coll_path + '/999999',
                                                'org.freedesktop.Secret.Item'), 'Delete', '')),
        ('path outside', error_of(conn, service(conn, ROOT + '/x/y/z'), 'Lock', 'ao', [])),
        ('wrong signature', error_of(conn, svc, 'OpenSession', 's', 'plain')),
        ('wrong types', error_of(conn, svc, 'SearchItems', 'a{sv}', {'a': ('s', 'b')})),
        ('unknown method', error_of(conn, svc, 'Explode', '')),
        ('unknown algorithm', error_of(conn, svc, 'OpenSession', 'sv', 'rot13', ('s', ''))),
        ('bad dh key', error_of(conn, svc, 'OpenSession', 'sv',
                                'dh-ietf1024-sha256-aes128-cbc-pkcs7', ('ay', b'\x01'))),
        ('foreign session', error_of(conn, coll, 'CreateItem', 'a{sv}(oayays)b', {},
                                     (ROOT + '/session/424242', b'', b'x', 'text/plain'), False)),
        ('10 MB secret', error_of(conn, coll, 'CreateItem', 'a{sv}(oayays)b',
                                  {'org.freedesktop.Secret.Item.Label': ('s', 'big')},
                                  (session, b'', b'x' * (10 << 20), 'text/plain'), False)),
        ('reserved attribute', error_of(conn, coll, 'CreateItem', 'a{sv}(oayays)b',
                                        {'org.freedesktop.Secret.Item.Attributes':
                                         ('a{ss}', {'argent:program': '/bin/evil'})},
                                        (session, b'', b'x', 'text/plain'), False)),
        ('set read-only', error_of(conn, DBusAddress(coll_path, bus_name=SS,
                                                     interface='org.freedesktop.DBus.Properties'),
                                   'Set', 'ssv', 'org.freedesktop.Secret.Collection', 'Locked',
                                   ('b', False))),
        ('delete collection', error_of(conn, coll, 'Delete', '')),
    ]
    for name, err in checks:
        print('%s: %s' % (name, err))
    # Still serving after all that.
    found, locked = call(conn, svc, 'SearchItems', 'a{ss}', {'nothing': 'here'})
    print('alive: %d' % len(found))


def flood(conn, n):
    svc = service(conn)
    coll = DBusAddress(ROOT + '/aliases/default', bus_name=SS,
                       interface='org.freedesktop.Secret.Collection')
    out, session = call(conn, svc, 'OpenSession', 'sv', 'plain', ('s', ''))
    t0 = time.monotonic()
    serials = set()
    for i in range(n):
        props = {'org.freedesktop.Secret.Item.Label': ('s', 'flood %d' % i),
                 'org.freedesktop.Secret.Item.Attributes': ('a{ss}', {'flood': 'yes', 'n': str(i)})}
        msg = new_method_call(coll, 'CreateItem', 'a{sv}(oayays)b', (props, (session, b'', b's%d' % i,
                                                                             'text/plain'), False))
        serial = next(conn.outgoing_serial)
        conn.send(msg, serial=serial)
        serials.add(serial)
        # Replies are taken as they come, so that the bus never holds more than a few
        # hundred calls of ours.
        while len(serials) > 200:
            reply = conn.receive(timeout=30)
            if reply.header.message_type in (MessageType.method_return, MessageType.error):
                serials.discard(reply.header.fields.get(HeaderFields.reply_serial))
    while serials:
        reply = conn.receive(timeout=30)
        if reply.header.message_type in (MessageType.method_return, MessageType.error):
            serials.discard(reply.header.fields.get(HeaderFields.reply_serial))
    found, = call(conn, coll, 'SearchItems', 'a{ss}', {'flood': 'yes'})
    one, = call(conn, coll, 'SearchItems', 'a{ss}', {'flood': 'yes', 'n': str(n // 2)})
    print('created: %d in %.1f s; one: %d' % (len(found), time.monotonic() - t0, len(one)))


if __name__ == '__main__':
    main()
