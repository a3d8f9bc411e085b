<?php
// The list script: ?Folder=<folder>[/<user identifier>]&User=<account>&PW=<SHA-1 of
// the password>. Answers the folder's firmware files, one name per line, in name
// order. A refused account or an unknown folder gets an empty answer: the client
// cannot tell the two apart, and is not meant to.
require_once __DIR__ . '/firmwaretree.php';

header('Content-Type: text/plain; charset=us-ascii');
if (!account_ok($_GET['User'] ?? '', $_GET['PW'] ?? ''))
    exit;
$dir = folder_path($_GET['Folder'] ?? '');
if ($dir === null)
    exit;
$names = array_values(array_filter(scandir($dir), fn($name) => plain_name($name) && is_file("$dir/$name")));
sort($names, SORT_STRING);
foreach ($names as $name)
    echo $name, "\n";
