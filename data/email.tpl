To: $MAIL_TO$
From: $MAIL_FROM$
Subject: $MAIL_SUBJECT$
MIME-Version: 1.0
Content-Type: text/html; charset=UTF-8
Content-Transfer-Encoding: 8bit

<!DOCTYPE html>
<html>
<head>
<meta http-equiv="Content-Type" content="text/html; charset=UTF-8">
<title>Shared with you</title>
</head>
<body style="font-family: sans-serif; font-size: 14px;">
<div>
$CONTENT$
</div>
<hr>
<p style="color: #808080; font-size: 12px;">
This message was sent by your storage appliance's file manager.<br>
&copy; $YEAR$ $VEXA$
</p>
</body>
</html>
