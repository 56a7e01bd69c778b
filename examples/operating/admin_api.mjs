// Requests to the admin API of an SFU.

const TIMEOUT_MS = 5000;
const CONTENT = '-content';

// The room beside a meeting's, for what is presented in it.
export const contentRoomOf = (room) => `${room}${CONTENT}`;

// The rooms of meetings among those that a server lists.
export const meetingsOf = (rooms) => rooms.filter(({ room }) => !room.endsWith(CONTENT));

// Resolves with the answer; rejects with the server's error.
export async function ask(server, janus, request = {}) {
  const response = await fetch(server, {
    method: 'POST',
    body: JSON.stringify({
      ...{ janus, transaction: crypto.randomUUID() },
      ...{ admin_secret: process.env.JANUS_ADMIN_SECRET, ...request },
    }),
    signal: AbortSignal.timeout(TIMEOUT_MS),
  });
  const answer = await response.json();
  if (answer.error) throw new Error(answer.error.reason);
  return answer;
}

// The same for the rooms. An error with the code `expected` is none.
export async function askRooms(server, request, expected) {
  const { response } = await ask(server, 'message_plugin', {
    plugin: 'janus.plugin.videoroom',
    request,
  });
  if (response.error && response.error_code !== expected) throw new Error(response.error);
  return response;
}
