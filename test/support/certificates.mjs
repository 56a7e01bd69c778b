// Certificates of an authority of one's own.

import { execFileSync } from 'node:child_process';
import path from 'node:path';

import { temporaryDirectory } from './temporary_directory.mjs';

function openssl(...args) {
  execFileSync('openssl', args, { stdio: 'ignore', env: { ...process.env, LD_PRELOAD: '' } });
}

// The PEM files { authority, certificate, key }: a server's certificate for `name`, as "IP:..." or
// "DNS:...", and that of the authority that signed it.
export function makeCertificate(test, name) {
  const directory = temporaryDirectory(test);
  const file = (each) => path.join(directory, each);
  const [authority, authorityKey] = [file('authority.pem'), file('authority.key')];
  const [certificate, key] = [file('certificate.pem'), file('key.pem')];
  const made = ['req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1'];
  made.push('-nodes', '-days', '1');
  openssl(...made, '-subj', '/CN=authority', '-keyout', authorityKey, '-out', authority);
  openssl(
    ...[...made, '-subj', '/CN=server', '-keyout', key, '-out', certificate],
    ...['-CA', authority, '-CAkey', authorityKey],
    ...['-addext', 'basicConstraints=CA:FALSE', '-addext', `subjectAltName=${name}`],
  );
  return { authority, certificate, key };
}
