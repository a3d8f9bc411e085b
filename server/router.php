<?php
// Morvanta's reference update server, for PHP's built-in web server:
//   MORVANTA_FIRMWARE_ROOT=<tree> MORVANTA_ACCOUNTS=<accounts.ini> php -S 127.0.0.1:8418 server/router.php
// Under /softwareupdate it answers the list script and serves the firmware files.
require_once __DIR__ . '/firmwaretree.php';

$prefix = '/softwareupdate/';
$path = rawurldecode(parse_url($_SERVER['REQUEST_URI'], PHP_URL_PATH) ?? '');
if (strncmp($path, $prefix, strlen($prefix)) !== 0) {
    http_response_code(404);
    exit;
}
$rest = substr($path, strlen($prefix));
if ($rest === 'getFileList.php') {
    require __DIR__ . '/getFileList.php';
    exit;
}

// <folder>[/<user identifier>]/<file>
$slash = strrpos($rest, '/');
$dir = $slash === false ? null : folder_path(substr($rest, 0, $slash));
$name = $slash === false ? '' : substr($rest, $slash + 1);
if ($dir === null || !plain_name($name) || !is_file("$dir/$name")) {
    http_response_code(404);
    exit;
}
header('Content-Type: application/octet-stream');
header('Content-Length: ' . filesize("$dir/$name"));
while (ob_get_level() > 0)
    ob_end_flush();
readfile("$dir/$name");
