// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
import { once } from 'node:events';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import dbus from 'dbus-next';
import usocket from 'usocket';

const connect = (path) => dbus.sessionBus({ busAddress: `unix:path=${path}`, negotiateUnixFd: true });

// The values of the answer, however long it takes.
async function ask(connection, protocol, member, signature, ...body) {
  const call = new dbus.Message({ path: '/', interface: `com.kelvo.${protocol}`, member, signature, body });
  return (await connection.call(call)).body;
}

// Connects to a socket of our own and passes the accepted end over the endpoint: the other end is a
// connection to the helper. (Node makes no socket pairs.)
async function connectThrough(endpoint) {
  const folder = mkdtempSync(`${tmpdir()}/client-`);
  const listener = new usocket.UServer();
  listener.listen(`${folder}/socket`);
  await once(listener, 'listening');
  const connection = connect(`${folder}/socket`);
  const [theirs] = await once(listener, 'connection');
  rmSync(folder, { recursive: true });
  const door = new usocket.USocket({ fd: endpoint });
  await new Promise((sent) => door.write({ data: Buffer.from('C'), fds: [theirs.fd] }, sent));
  // What usocket closes must not be collected before Node has closed it, too.
  connection.closed = [listener, door, theirs].map(({ _wrap }) => _wrap);
  listener.close();
  for (const socket of [door, theirs]) socket.destroy();
  return connection;
}

const [executable, command] = process.argv.slice(2);
const hoist = connect('/run/kelvo/com.kelvo.hoist');
const [, [endpoint]] = await ask(hoist, 'TesselHoisting', 'launchPrivilegedHelper_commandName_flags_reply_', 'ssas',
  executable, command, ['seconds=0']);
const exception = endpoint && (await ask(await connectThrough(endpoint), 'CommandMessaging', 'runWithReply_'))[0];
console.log(!endpoint ? 'no helper was launched' : exception.length ? 'failed' : 'finished');
process.exit();
