#!/usr/bin/env node
// Runs one S3-compatible object store (s3rver) for the platform, the demo and the tests.
//
//   node s3rver.js --dir DIR [--address 127.0.0.1] [--port 0] [--access-key K --secret-key S]...
//                  [--bucket NAME]... [--cert PEM --key PEM]
//
// Every request must be signed with one of the given key pairs (SigV4; a wrong signature or an unsigned
// request gets 403).
// Prints one line once it listens: READY {"port":N,"scheme":"http"}. Ends on SIGTERM or SIGINT, and when
// its standard input closes, so that a store never outlives the process that started it.
'use strict';

const fs = require('fs');
const path = require('path');

function usage(message) {
  process.stderr.write(`s3rver.js: ${message}\n`);
  process.exit(2);
}

function parse(argv) {
  const options = { address: '127.0.0.1', port: 0, keys: [], buckets: [], dir: '', cert: '', key: '' };
  let pendingAccessKey = null;
  for (let i = 0; i < argv.length; ++i) {
    const flag = argv[i];
    const value = argv[i + 1];
    if (value === undefined) usage(`${flag} needs a value`);
    ++i;
    switch (flag) {
      case '--dir': options.dir = value; break;
      case '--address': options.address = value; break;
      case '--port': options.port = Number(value); break;
      case '--bucket': options.buckets.push(value); break;
      case '--cert': options.cert = value; break;
      case '--key': options.key = value; break;
      case '--access-key': pendingAccessKey = value; break;
      case '--secret-key':
        if (pendingAccessKey === null) usage('--secret-key must follow --access-key');
        options.keys.push([pendingAccessKey, value]);
        pendingAccessKey = null;
        break;
      default: usage(`unknown flag ${flag}`);
    }
  }
  if (!options.dir) usage('--dir is required');
  if (pendingAccessKey !== null) usage('--access-key without --secret-key');
  if (!Number.isInteger(options.port) || options.port < 0 || options.port > 65535) usage('bad --port');
  if (!!options.cert !== !!options.key) usage('--cert and --key go together');
  return options;
}

function main() {
  const options = parse(process.argv.slice(2));
  let S3rver;
  let AWSAccount;
  try {
    S3rver = require('@20minutes/s3rver');
    AWSAccount = require('@20minutes/s3rver/lib/models/account');
  } catch (e) {
    process.stderr.write('s3rver.js: @20minutes/s3rver is not installed; run scripts/setup.sh\n');
    process.exit(3);
  }
  // Only the configured keys sign: the package's built-in demo pair is withdrawn.
  if (options.keys.length > 0) {
    AWSAccount.DUMMY_ACCOUNT.revokeAccessKey('S3RVER');
    for (const [accessKey, secretKey] of options.keys) {
      AWSAccount.DUMMY_ACCOUNT.createKeyPair(accessKey, secretKey);
    }
  }
  fs.mkdirSync(options.dir, { recursive: true });
  const serverOptions = {
    address: options.address,
    port: options.port,
    directory: path.resolve(options.dir),
    silent: true,
    configureBuckets: options.buckets.map((name) => ({ name })),
  };
  if (options.cert) {
    serverOptions.cert = fs.readFileSync(options.cert);
    serverOptions.key = fs.readFileSync(options.key);
  }
  const server = new S3rver(serverOptions);
  // Buckets are private, as on a real store: s3rver itself lets unsigned reads through.
  const koaCallback = server.callback.bind(server);
  server.callback = () => {
    const handle = koaCallback();
    return (request, response) => {
      const query = request.url.includes('?') ? request.url.slice(request.url.indexOf('?')) : '';
      if (request.headers.authorization || /[?&](X-Amz-Signature|Signature)=/.test(query)) {
        handle(request, response);
        return;
      }
      response.statusCode = 403;
      response.setHeader('Content-Type', 'application/xml');
      response.end('<?xml version="1.0" encoding="UTF-8"?>\n<Error><Code>AccessDenied</Code>' +
                   '<Message>Anonymous access is not allowed</Message></Error>');
    };
  };
  const cannotListen = (error) => {
    const reason = error.code === 'EADDRINUSE' ? 'another program holds the port (EADDRINUSE)' : error.message;
    process.stderr.write(`s3rver.js: cannot listen on ${options.address}:${options.port}: ${reason}\n`);
    process.exit(1);
  };
  // A listen failure is emitted on the server s3rver creates, not through run()'s promise.
  process.on('uncaughtException', (error) => {
    if (error.syscall === 'listen') cannotListen(error);
    process.stderr.write(`s3rver.js: failed: ${error.message}\n`);
    process.exit(1);
  });
  server.run().then(
    (address) => {
      const scheme = options.cert ? 'https' : 'http';
      process.stdout.write(`READY ${JSON.stringify({ port: address.port, scheme })}\n`);
    },
    cannotListen);
  const stop = () => {
    server.close().finally(() => process.exit(0));
    setTimeout(() => process.exit(0), 2000).unref();
  };
  process.on('SIGTERM', stop);
  process.on('SIGINT', stop);
  process.stdin.on('end', stop);
  process.stdin.on('error', stop);
  process.stdin.resume();
}

main();
