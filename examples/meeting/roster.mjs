// The names of participants. The engine has streams, not people: an application knows the names
// from its own invitations. Here they are derived from the stream.

const PEOPLE = [
  ...['Amara Okafor', 'Björn Lindqvist', 'Chiara Bianchi', 'Dmitri Volkov', 'Elif Yılmaz'],
  ...['Farid Haddad', 'Grace Mwangi', 'Hana Novák', 'Iker Etxeberria', 'Jun Takahashi'],
  ...['Karin Schäfer', 'Lucía Romero', 'Mei-Ling Chen', 'Niamh Byrne', 'Oskar Nilsen'],
];

export function titleOf({ type, streamIndex }) {
  if (type === 'local') return 'You';
  if (type === 'content') return 'Shared content';
  return PEOPLE[streamIndex] ?? `Guest ${streamIndex + 1}`;
}
